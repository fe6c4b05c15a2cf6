#pragma once

// The frame timeline in a Perfetto trace, brought to the clock of the trace's ftrace events.

#include <cstdint>
#include <map>
#include <optional>

#include "PerfettoTrace.pb.h"
#include "replay/capture/FrameTimeline.h"
#include "replay/capture/Marker.h"

namespace replay {

// Packets in the order of the trace. What is on a clock that the trace does not relate to the events'
// is passed over.
class PerfettoTimeline {
  public:
    // The beginnings of display frames go to `sink` as changes of a counter, as they tell the vsyncs
    // where nothing else does.
    void use(const perfetto::TracePacket& packet, FrameTimeline& timeline, const MarkerSink& sink);

  private:
    void noteClocks(const perfetto::TracePacket& packet);
    std::optional<int64_t> timeOf(const perfetto::TracePacket& packet) const;

    std::map<uint32_t, uint32_t> mClocks;  // of each sequence
    std::optional<int64_t> mBootLessMonotonicNs;
    int64_t mEventsLessBootNs = 0;
    int mDisplayFrames = 0;
};

}  // namespace replay
