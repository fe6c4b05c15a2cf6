#pragma once

// What the player saw: which picture came on the screen at which vsync.

#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

// The compositor took a buffer.
struct Latch {
    int64_t timeNs = 0;
    int frame = kNoFrame;  // kNoFrame: queued before the run began
};

// Fills in Findings::screen and what the frames have of it. The latches come in the order of time;
// of several at one vsync the last is shown.
void addShown(Findings& findings, const std::vector<Latch>& latches);

}  // namespace replay
