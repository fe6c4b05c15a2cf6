#pragma once

#include <vector>

#include "replay/plan/Jobs.h"
#include "replay/program/CommandLine.h"

namespace replay {

enum ExitStatus { kDone = 0, kOutputFailed = 1, kBadInput = 2, kReplayFailed = 3, kDiffers = 4 };

// Does what the command line asks for. Throws InputError, OutputError and ReplayError.
ExitStatus execute(const CommandLine& line);

// Complains of the jobs that failed; the worst status of those, or kDone.
ExitStatus complainOfFailures(const std::vector<JobResult>& results);

}  // namespace replay
