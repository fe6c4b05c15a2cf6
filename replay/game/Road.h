#pragma once

// How the time between two buffers of a game was spent, told by walking back from the later one
// along the threads that made it: who ran, who waited, and for whom.

#include <array>
#include <cstdint>
#include <vector>

#include "replay/capture/Capture.h"

namespace replay {

enum class Part {
    kHeld,      // by the library, after the buffer before
    kBuffer,    // waited for a free buffer
    kVsync,     // waited for a vsync
    kTimer,     // slept until a time of its own
    kStage,     // waited for another thread, of which the capture tells no more
    kFence,     // waited for the graphics processor
    kRunnable,  // would have run, but there was no processor
    kRunning,   // its own threads, and those that worked for them
    kUnknown,   // the capture does not tell
};
constexpr size_t kParts = 9;
using Parts = std::array<int64_t, kParts>;  // ns each

inline int64_t& partOf(Parts& parts, Part part) {
    return parts[static_cast<size_t>(part)];
}
inline int64_t partOf(const Parts& parts, Part part) {
    return parts[static_cast<size_t>(part)];
}

struct RoadStep {
    int64_t beginNs = 0;
    int64_t endNs = 0;
    Part part = Part::kUnknown;
    int thread = -1;  // whose step it is; -1: not known
};

// Ascending and without gaps from one queued buffer to the next.
using Road = std::vector<RoadStep>;

// The thread whose queue calls made the layer's counter rise; -1 if the capture does not tell.
int producerOf(const LayerEvents& layer, const Scheduling& scheduling);

// One for each queued buffer but the first, each of a single step where the capture does not tell.
std::vector<Road> roadsOf(const LayerEvents& layer, const Scheduling& scheduling, int producer);

// What of the road lies between the times.
Parts partsBetween(const Road& road, int64_t beginNs, int64_t endNs);

}  // namespace replay
