#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace replay {

// What userspace wrote into a trace, such as "C|123|VSYNC-sf|1". Valid only during the call.
struct Marker {
    int64_t timeNs = 0;  // the capture's own clock
    std::string_view payload;
    int thread = 0;  // who wrote it; a process' main thread has the number of the process
};

// May throw DamagedMarker, which costs the capture that one marker; anything else ends the reading.
using MarkerSink = std::function<void(const Marker&)>;

}  // namespace replay
