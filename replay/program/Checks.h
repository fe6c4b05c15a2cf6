#pragma once

// cindral-replay record and check.

#include "replay/program/Tasks.h"

namespace replay {

// Where the recording of the capture is, or will be.
std::string expectationOf(const CommandLine& line, const std::string& capture);

ExitStatus recordExpectations(const CommandLine& line);
// kDiffers if anything that is sent has changed since, with the differences on standard output.
ExitStatus checkExpectations(const CommandLine& line);

}  // namespace replay
