#pragma once

#include "replay/program/CommandLine.h"

namespace replay {

enum ExitStatus { kDone = 0, kOutputFailed = 1, kBadInput = 2, kReplayFailed = 3, kDiffers = 4 };

// Does what the command line asks for. Throws InputError, OutputError and ReplayError.
ExitStatus execute(const CommandLine& line);

}  // namespace replay
