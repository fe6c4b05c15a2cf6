#pragma once

// The scheduling in a Perfetto trace: single events, or in columns as phones usually have it.

#include <cstdint>
#include <unordered_map>

#include "PerfettoTrace.pb.h"
#include "replay/capture/Scheduling.h"

namespace replay {

// The bundles of each processor come in its own order, those of several in any. What is damaged is
// passed over.
class PerfettoScheduling {
  public:
    void use(const perfetto::FtraceEventBundle& bundle, SchedulingBuilder& scheduling);

  private:
    void useColumns(uint32_t cpu, const perfetto::CompactSched& columns,
                    SchedulingBuilder& scheduling);

    // Who is on each processor, which the columns leave out. It has no entry before its first switch.
    std::unordered_map<uint32_t, int> mRunning;
};

}  // namespace replay
