#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/StandInDevice.h"
#include "sim/Simulation.h"
#include "tests/reliability/CallProgram.h"
#include "tests/reliability/Memory.h"
#include "tests/reliability/Watch.h"

namespace reliability {

// A schedule is a number: it says the kind, whether the clock may overtake threads, whether loads may
// be late where the library is built for it (CINDRAL_EXPLORE), and the seed.
sim::Options scheduleOf(uint64_t number);

// What is wrong with the device or the system during a run.
struct Trouble {
    bool sound = false;                                  // nothing is wrong, it is only observed
    bool passes = false;                                 // afterwards everything has to work
    std::function<void(device::StandInDevice&)> device;  // last word on its state
    std::vector<std::string> without;  // libraries and entry points that are missing
    Shortage memory;
    int slowEntryPoint = -1;  // whose calls take
    int64_t slowNs = 0;
    bool lastingThreads = false;  // no threads from CallProgram::failThread on
    int64_t startTimeNs = 0;      // of the clock; 0 for the usual one
    std::function<void(const device::Event&)> observer;
};

// The schedule without any disturbance.
inline constexpr uint64_t kUndisturbed = UINT64_MAX;

// Where memory is to be counted: the caller's program, and the device.
Shortage countedMemory();

// Plays the program to the library, in this process, and unloads it. Does not return if an
// invariant is violated.
Reached play(const CallProgram& program, const sim::Options& schedule, const std::string& library,
             const Trouble* trouble = nullptr);

// The same with real threads in real time, which only has to end, and to leave no memory behind.
void playInRealTime(const CallProgram& program, const std::string& library);

}  // namespace reliability
