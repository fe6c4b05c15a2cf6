#pragma once

// What both kinds of trace show of a run, in the order of time.

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "replay/report/TraceExport.h"

namespace replay {

struct TraceArgument {
    const char* name;
    std::variant<int64_t, std::string> value;
};

// One thing on a track.
struct TraceEvent {
    enum class Kind { kBegin, kEnd, kInstant, kCounter };

    Kind kind = Kind::kInstant;
    int track = 0;
    int64_t timeNs = 0;  // of the capture's clock
    const char* category = "";
    std::string name;
    std::vector<TraceArgument> arguments;
    double value = 0;  // kCounter
};

struct TraceTrack {
    enum class Kind { kThread, kSpans, kCounter };

    Kind kind = Kind::kThread;
    int process = 0;  // from 1
    int number = 0;   // of the whole trace, from 1
    std::string name;
};

// Writes one format. Every track is announced before its first event. On each track the events come
// in the order of time, and begins and ends are balanced.
class TraceWriter {
  public:
    virtual ~TraceWriter() = default;
    virtual void process(int process, const std::string& name) = 0;
    virtual void track(const TraceTrack& track) = 0;
    virtual void event(const TraceEvent& event) = 0;
};

void walkRuns(const std::vector<TraceRun>& runs, TraceWriter& writer);

}  // namespace replay
