#pragma once

// One input under one setup, played in this process: the whole way to findings.

#include "replay/findings/Findings.h"
#include "replay/plan/Input.h"
#include "replay/plan/Setup.h"
#include "replay/play/Run.h"

namespace replay {

struct Played {
    Findings findings;  // what it was about; enough for most, and plain data
    Run run;            // every event, for timelines and traces
};

// One run at a time in a process, one after the other. Throws InputError, or ReplayError, after
// which no other run is possible in this process; see Plan.h for runs in processes of their own.
Played playInput(const Input& input, const Setup& setup);

}  // namespace replay
