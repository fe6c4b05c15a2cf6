#include "replay/findings/FrameFindings.h"

#include <algorithm>
#include <numeric>

#include "replay/base/Statistics.h"
#include "replay/findings/Shown.h"

namespace replay {

namespace {

// Below this a call took its time, but was not held.
constexpr int64_t kMinHoldNs = 100'000;
constexpr size_t kWorstShown = 10;

Frame frameOf(const FedEvent& event, const std::vector<Frame>& before, const Refresh& refresh) {
    Frame frame;
    frame.dueNs = event.dueNs;
    frame.queuedNs = event.deliveredNs;
    frame.returnedNs = event.returnedNs;
    frame.periodNs = refresh.periodAt(frame.queuedNs);
    if (before.empty()) return frame;
    // A frame that the display's change met is not to blame for it.
    frame.periodNs = refresh.longestPeriodNs(before.back().queuedNs, frame.queuedNs);
    frame.intervalNs = frame.queuedNs - before.back().queuedNs;
    frame.renderNs = frame.queuedNs - before.back().returnedNs;
    const int64_t lateByNs = lateNs(refresh, before.back().queuedNs, frame.queuedNs);
    frame.late = lateByNs > 0;
    // Exactly one more period and the tolerance is not yet late by more than one vsync.
    if (frame.late) frame.lateVsyncs = static_cast<int>((lateByNs - 1) / frame.periodNs);
    return frame;
}

void addLists(Findings& findings, const Run& run) {
    findings.frames.reserve(static_cast<size_t>(std::count_if(
            run.fed.begin(), run.fed.end(),
            [](const FedEvent& event) { return event.kind == FedEvent::Kind::kQueue; })));
    for (const FedEvent& event : run.fed) {
        if (event.kind == FedEvent::Kind::kQueue) {
            findings.frames.push_back(frameOf(event, findings.frames, findings.refresh));
        } else if (event.kind == FedEvent::Kind::kVsync) {
            findings.vsyncsNs.push_back(event.dueNs);
        }
    }
}

void addStutters(Findings& findings, const Run& run) {
    std::optional<int64_t> previousNs;
    for (const FedEvent& event : run.fed) {
        if (event.kind != FedEvent::Kind::kConsume) continue;
        if (previousNs) {
            const int vsyncs = vsyncsStood(findings.refresh, *previousNs, event.deliveredNs);
            if (vsyncs >= kStutterVsyncs) findings.stutters.push_back({event.deliveredNs, vsyncs});
        }
        previousNs = event.deliveredNs;
    }
}

// Which buffer was taken when. A replay as captured may deliver a buffer after the compositor took
// it, so the order is that of the due times, which is the capture's own. The count of pending
// buffers says which one was taken, also where the capture has lost some.
class QueueHistory {
  public:
    QueueHistory(Findings& findings, const Run& run, int pendingAtStart)
          : mFindings(findings), mPending(pendingAtStart) {
        for (const FedEvent& event : run.fed) {
            const bool matters =
                    event.kind == FedEvent::Kind::kQueue || event.kind == FedEvent::Kind::kConsume;
            if (matters) mEvents.push_back(&event);
        }
        const auto isEarlier = [](const auto* a, const auto* b) { return a->dueNs < b->dueNs; };
        if (!std::is_sorted(mEvents.begin(), mEvents.end(), isEarlier))
            std::stable_sort(mEvents.begin(), mEvents.end(), isEarlier);
    }

    // Fills in the frames and the depth of the queue.
    std::vector<Latch> write() {
        mFindings.queueDepth.push_back({0, static_cast<double>(mPending)});
        for (const FedEvent* event : mEvents) {
            if (event->kind == FedEvent::Kind::kQueue) {
                mFindings.frames[mQueued++].pending = ++mPending;
            } else {
                mPending = static_cast<int>(event->value);
                latch(event->dueNs);
            }
            mFindings.queueDepth.push_back({event->dueNs, static_cast<double>(mPending)});
        }
        return std::move(mLatches);
    }

  private:
    void latch(int64_t timeNs) {
        const int64_t index = static_cast<int64_t>(mQueued) - mPending - 1;
        mLatches.push_back({timeNs, index < 0 ? kNoFrame : static_cast<int>(index)});
        if (index < 0) return;  // was there before the capture began
        Frame& frame = mFindings.frames[static_cast<size_t>(index)];
        if (!frame.latchedNs && timeNs >= frame.queuedNs) frame.latchedNs = timeNs;
    }

    Findings& mFindings;
    std::vector<const FedEvent*> mEvents;
    std::vector<Latch> mLatches;
    size_t mQueued = 0;
    int mPending;
};

void addCounts(Findings& findings) {
    for (size_t i = 0; i < findings.frames.size(); ++i) {
        const Frame& frame = findings.frames[i];
        if (frame.heldNs() >= kMinHoldNs) ++findings.framesHeld;
        if (i > 0 && frame.renderNs <= 0) ++findings.zeroRenderTimes;
        if (!frame.late) continue;
        for (int vsyncs = 0; vsyncs < Findings::kLateClasses; ++vsyncs) {
            if (frame.lateVsyncs >= vsyncs) ++findings.late[static_cast<size_t>(vsyncs)];
        }
    }
}

void addDistributions(Findings& findings) {
    std::vector<int64_t> intervals, renders, holds, latencies;
    for (size_t i = 0; i < findings.frames.size(); ++i) {
        const Frame& frame = findings.frames[i];
        holds.push_back(frame.heldNs());
        if (frame.latchedNs) latencies.push_back(*frame.latchedNs - frame.queuedNs);
        if (i == 0) continue;
        intervals.push_back(frame.intervalNs);
        renders.push_back(frame.renderNs);
    }
    findings.frameTimeNs = distributionOf(std::move(intervals));
    findings.renderTimeNs = distributionOf(std::move(renders));
    findings.heldNs = distributionOf(std::move(holds));
    findings.latencyNs = distributionOf(std::move(latencies));
}

void addWorst(Findings& findings) {
    std::vector<int>& worst = findings.worst;
    worst.resize(findings.frames.size());
    std::iota(worst.begin(), worst.end(), 0);
    const auto interval = [&](int index) {
        return findings.frames[static_cast<size_t>(index)].intervalNs;
    };
    const size_t shown = std::min(kWorstShown, worst.size());
    std::partial_sort(worst.begin(), worst.begin() + static_cast<ptrdiff_t>(shown), worst.end(),
                      [&](int a, int b) {
                          return std::make_pair(-interval(a), a) < std::make_pair(-interval(b), b);
                      });
    worst.resize(shown);
    worst.shrink_to_fit();
}

}  // namespace

Distribution distributionOf(std::vector<int64_t> values) {
    auto ranked = values.begin();  // what is before does not exceed what is behind
    const auto rank = [&](size_t percent) {
        if (values.empty()) return int64_t{0};
        const size_t place = (values.size() * percent + 99) / 100 - 1;
        const auto nth = values.begin() + static_cast<ptrdiff_t>(place);
        std::nth_element(ranked, nth, values.end());
        ranked = nth;
        return *nth;
    };
    Distribution distribution;
    distribution.count = values.size();
    distribution.p50 = rank(50);
    distribution.p90 = rank(90);
    distribution.p95 = rank(95);
    distribution.p99 = rank(99);
    distribution.max = rank(100);
    distribution.total = std::accumulate(values.begin(), values.end(), int64_t{0});
    return distribution;
}

void addFrames(Findings& findings, const Run& run, int pendingAtStart) {
    addLists(findings, run);
    addShown(findings, QueueHistory(findings, run, pendingAtStart).write());
    addStutters(findings, run);
    addCounts(findings);
    addDistributions(findings);
    addWorst(findings);
}

}  // namespace replay
