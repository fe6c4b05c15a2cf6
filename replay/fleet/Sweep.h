#pragma once

// Captures times settings to a folder of rows: what a fleet's machines do.

#include <string>
#include <vector>

#include "replay/fleet/Row.h"
#include "replay/plan/Input.h"
#include "replay/plan/Setup.h"

namespace replay {

struct Sweep {
    std::vector<FleetCapture> captures;
    std::vector<Setup> setups;
    InputChoice input;    // but for the capture, the same for all
    std::string library;  // hash of its file, see buildOf
    std::string folder;   // of the rows
    unsigned jobs = 1;    // processes at a time
    std::string title;    // what the bar says
};

struct SweepResult {
    size_t made = 0;
    size_t failed = 0;   // of those made: rows that only say why there is no run
    size_t present = 0;  // were there, and are not run again
    size_t lost = 0;     // captures that left rows missing; each was complained of
};

// Of a run that is still to be played.
Row rowFor(const Sweep& sweep, const std::string& capture, const Setup& setup);

// Makes the rows that are not there yet, each in a process of its own, and notes the hashes of the
// captures that could be read. What fails always is a row with its reason; what may go well another
// time, such as a run that somebody killed or a file that cannot be read, leaves none. Memory depends
// on the largest capture, not on their number. Throws OutputError if rows cannot be written. Call it
// while the process has only one thread.
SweepResult makeRows(Sweep& sweep);

// The hash of the library's file, wherever it is found. Throws InputError if it cannot be opened.
std::string buildOf(const std::string& library);

}  // namespace replay
