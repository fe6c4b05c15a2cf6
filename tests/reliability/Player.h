#pragma once

#include <string>

#include "sim/Simulation.h"
#include "tests/reliability/Program.h"
#include "tests/reliability/Watch.h"

namespace reliability {

// A schedule is a number: it says the kind, whether the clock may overtake threads, and the seed.
sim::Options scheduleOf(uint64_t number);

// Plays the program to the library, in this process, and unloads it. Does not return if an
// invariant is violated.
Reached play(const Program& program, uint64_t schedule, const std::string& library);

// The name of the invariant that a failure of the simulation violates.
const char* invariantOf(sim::Failure failure);

}  // namespace reliability
