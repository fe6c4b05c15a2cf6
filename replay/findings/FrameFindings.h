#pragma once

// How the frames did: the part of the findings that needs no library.

#include "replay/findings/Findings.h"

namespace replay {

// The library's own tolerance for a late frame.
constexpr int64_t kLateToleranceNs = 2'000'000;

// By how much a frame is late; 0 and less: it is not.
inline int64_t lateNs(const Refresh& refresh, int64_t beforeNs, int64_t queuedNs) {
    const int64_t periodNs = refresh.longestPeriodNs(beforeNs, queuedNs);
    return queuedNs - beforeNs - periodNs - kLateToleranceNs;
}

// For so many vsyncs there was no new picture, from two on a stutter.
constexpr int kStutterVsyncs = 2;
inline int vsyncsStood(const Refresh& refresh, int64_t beforeNs, int64_t latchNs) {
    const int64_t periodNs = refresh.longestPeriodNs(beforeNs, latchNs);
    return static_cast<int>((2 * (latchNs - beforeNs) + periodNs) / (2 * periodNs));
}

Distribution distributionOf(std::vector<int64_t> values);

// Fills in what follows from the calls of the compositor alone: frames, late ones, stutters,
// distributions, depth of the queue, vsyncs.
void addFrames(Findings& findings, const Run& run, int pendingAtStart);

// Which frame was the last to be queued before or at a time. Asked with ascending times.
class FrameCursor {
  public:
    explicit FrameCursor(const std::vector<Frame>& frames) : mFrames(frames) {}

    int at(int64_t timeNs) {
        while (mNext < mFrames.size() && mFrames[mNext].queuedNs <= timeNs) ++mNext;
        return static_cast<int>(mNext) - 1;
    }

  private:
    const std::vector<Frame>& mFrames;
    size_t mNext = 0;
};

}  // namespace replay
