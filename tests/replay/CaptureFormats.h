#pragma once

// Writes counters in every form in which captures travel, as devices and their tools do. For tests
// and for the fuzzers' first inputs. It shares no code with the readers, or both could be wrong alike.

#include <string>
#include <utility>
#include <vector>

#include "replay/capture/FtraceWriter.h"

namespace replay {

using Samples = std::vector<CounterSample>;

// A game at 60 Hz that queues a frame a vsync, early and late in turn, with a pause now and then.
Samples gameSamples(int64_t vsyncs = 1800);

// The forms of systrace pages.
std::string pageOf(const std::string& ftrace);
std::string oldestPageOf(const std::string& ftrace);

enum class PacketPacking { kNone, kZlib, kZstd };
// A Perfetto trace of what ftrace wrote, with the bundles of the processors in turn: every event for
// itself, or switches and wake-ups in columns.
std::string perfettoOf(const std::string& ftrace, PacketPacking packing, bool compact);
std::string perfettoOf(const Samples& samples, PacketPacking packing);

// The packets of one frame in a Perfetto trace's frame timeline, on the monotonic clock, which is
// `behindNs` behind that of the other packets.
struct TimelinePackets {
    std::string layer;
    int64_t beginNs = 0;
    int64_t endNs = 0;
    int present = 0;
    int jank = 0;
};
std::string timelineOf(const TimelinePackets& frame, int64_t behindNs);

std::string ftraceOf(const Samples& samples);
std::string gzipOf(const std::string& bytes);
std::string zstdOf(const std::string& bytes);
std::string zipOf(const std::vector<std::pair<std::string, std::string>>& files);
// "atrace -z"
std::string packedAtraceOf(const std::string& ftrace);

struct NamedCapture {
    const char* name;
    std::string bytes;
};
std::vector<NamedCapture> inEveryFormat(const Samples& samples);

}  // namespace replay
