#pragma once

// cindral-replay sweep, gather and tune.

#include "replay/program/Tasks.h"

namespace replay {

ExitStatus sweepCaptures(const CommandLine& line);
ExitStatus gatherTable(const CommandLine& line);
ExitStatus tuneSetting(const CommandLine& line);

}  // namespace replay
