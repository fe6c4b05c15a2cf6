#pragma once

// The frame timeline of a Perfetto trace: what the phone itself says of each frame. Frames without a
// vsync of the platform's are not in it, so that of many games there is nothing.

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace replay {

struct TimelineFrame {
    std::string layer;
    int64_t endNs = 0;  // the application had finished it
    int present = 0;    // 1 on time, 2 late, 3 early, 4 dropped
    uint32_t jank = 0;  // a bit for each cause
};

// "late: application deadline missed"; for people.
std::string verdictOf(const TimelineFrame& frame);
bool isMissed(const TimelineFrame& frame);

// Gathers the frames, times on the capture's own clock. Single-threaded.
class FrameTimeline {
  public:
    void begin(int64_t cookie, TimelineFrame frame);
    // Ends whatever began with the cookie.
    void end(int64_t timeNs, int64_t cookie);

    // In the order of their ends, times since `originNs`.
    std::vector<TimelineFrame> build(int64_t originNs);

  private:
    std::map<int64_t, TimelineFrame> mOpen;  // by cookie
    std::vector<TimelineFrame> mFrames;
};

}  // namespace replay
