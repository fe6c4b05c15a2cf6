#pragma once

// The trace viewer's format: protobuf, one packet after the other.

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace replay {

namespace trackevents {
class Trace;
class TracePacket;
}  // namespace trackevents

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

// Every track is announced before its first event. On each track the events come in the order of
// time, and begins and ends are balanced.
class TraceWriter {
  public:
    // `out` must outlive this.
    explicit TraceWriter(std::ostream& out);
    ~TraceWriter();

    void process(int process, const std::string& name);
    void track(const TraceTrack& track);
    void event(const TraceEvent& event);

  private:
    trackevents::TracePacket& start();
    void write();

    std::ostream& mOut;
    const std::unique_ptr<trackevents::Trace> mTrace;  // holds one packet at a time
};

// Whether a file that begins so is a trace of this program.
bool isTrace(std::string_view firstBytes);

}  // namespace replay
