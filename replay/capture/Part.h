#pragma once

// What of a capture is to be played. Times are ns since the capture's first event, before and after.

#include <cstdint>
#include <vector>

#include "replay/capture/Capture.h"

namespace replay {

// Leaves only what happened between the two times, both included; `fromNs` becomes time 0.
void cutCapture(Capture& capture, int64_t fromNs, int64_t toNs);

// Makes one layer, by the name of the last, of layers that followed each other: an application that
// comes back gets a new one. Returns its index. Throws InputError if two queue at the same time.
size_t joinLayers(Capture& capture, std::vector<size_t> indexes);

}  // namespace replay
