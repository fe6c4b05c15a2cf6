#pragma once

// Layers of a capture that lacks the compositor's counters of their queues, told from the slices
// around the queueing and the taking of buffers.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "replay/capture/Marker.h"

namespace replay {

// A layer's buffers on the capture's own clock.
struct SlicedLayer {
    std::string counter;  // as the counter would be called
    std::vector<int64_t> queueTimesNs;
    std::vector<int64_t> latchTimesNs;  // one of each composition, of whichever layers
};

// Single-threaded; markers in the order of the capture.
class SliceQueues {
  public:
    void addMarker(const Marker& marker);
    // Those that the compositor's queue slices name ("LAYER: slot"); without any, each thread that
    // queues buffers is one.
    std::vector<SlicedLayer> layers() const;

  private:
    struct Thread {
        int process = 0;
        std::vector<int64_t> queueTimesNs;
    };

    std::map<std::string, std::vector<int64_t>, std::less<>> mNamed;
    std::map<int, Thread> mQueuing;
    std::vector<int64_t> mLatches;
    int mCompositor = 0;  // whose main thread latches
    size_t mCount = 0;
};

}  // namespace replay
