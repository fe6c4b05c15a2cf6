#pragma once

// Programs small enough for all their schedules up to a bound.

#include <string>
#include <vector>

#include "sim/Choices.h"
#include "sim/Simulation.h"
#include "tests/reliability/CallProgram.h"

namespace reliability {

struct SmallProgram {
    std::string name;
    CallProgram program;
    int departures;  // at most so many in a schedule
};

// A few protocols of the library by name, and all programs of two threads with two calls each,
// which come in when a game is played, paced and boosted, and all happen in one moment.
std::vector<SmallProgram> smallPrograms();
inline constexpr size_t kProtocols = 9;  // come first

// The schedule that `choices` is at. So many loads may be late in a run, where the library is built for
// it (CINDRAL_EXPLORE).
sim::Options scheduleOf(const SmallProgram& program, sim::Choices& choices, int lateLoads);

}  // namespace reliability
