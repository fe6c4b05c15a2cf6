#pragma once

// A run for the trace viewer that the field uses: the library's markers on the tracks of their
// threads, the calls into it as slices, its calls of the service as instants with their cause, its
// quantities as counters. Times are those of the capture, so that both can be laid side by side.

#include <ostream>
#include <string>
#include <vector>

#include "replay/findings/Findings.h"
#include "replay/play/Run.h"

namespace replay {

struct TraceRun {
    std::string label;
    const Run* run = nullptr;
    const Findings* findings = nullptr;
};

// Each run is a process of the trace.
void writeTrace(std::ostream& out, const std::vector<TraceRun>& runs);

}  // namespace replay
