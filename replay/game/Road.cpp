#include "replay/game/Road.h"

#include <algorithm>
#include <unordered_map>

namespace replay {

namespace {

using EventKind = ThreadEvent::Kind;

// Threads that wake each other in a circle would be followed for ever.
constexpr int kMaxDepth = 16;
// A thread may be woken while it is still on its way to sleep.
constexpr int64_t kWokenEarlyNs = 200'000;

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

// The thread that passes the display's beat on to applications, by its names through the releases.
bool tellsVsyncs(const std::string& name) {
    return contains(name, "EventThread") || name == "app" || name == "appSf";
}

bool isOfGraphics(const std::string& name) {
    return contains(name, "GPU completion") || contains(name, "ence") || contains(name, "kgsl") ||
           contains(name, "mali");
}

bool isSwitch(const ThreadEvent& event) {
    return event.kind == EventKind::kRuns || event.kind == EventKind::kPreempted ||
           event.kind == EventKind::kBlocks;
}

class Walk {
  public:
    Walk(const Scheduling& scheduling, int64_t beginNs)
          : mScheduling(scheduling), mBeginNs(beginNs) {}

    Road from(int thread, int64_t endNs) {
        if (mScheduling.hasSwitches()) {
            back(thread, endNs, mBeginNs, 0);
        } else {
            alongSlices(thread, endNs);
        }
        std::reverse(mSteps.begin(), mSteps.end());
        return std::move(mSteps);
    }

  private:
    void add(int64_t beginNs, int64_t endNs, Part part, int thread) {
        beginNs = std::max(beginNs, mBeginNs);
        if (beginNs >= endNs) return;
        if (!mSteps.empty() && mSteps.back().part == part && mSteps.back().thread == thread) {
            mSteps.back().beginNs = beginNs;
        } else {
            mSteps.push_back({beginNs, endNs, part, thread});
        }
    }

    // Everything the thread did, or waited for, from `endNs` back to `beginNs`.
    void back(int thread, int64_t endNs, int64_t beginNs, int depth) {
        const ThreadEvents events = mScheduling.of(thread);
        const ThreadEvent* at = firstAfter(events, endNs);
        while (endNs > beginNs) {
            if (at == events.begin()) return add(beginNs, endNs, Part::kUnknown, thread);
            --at;
            const int64_t sinceNs = std::clamp(at->timeNs, beginNs, endNs);
            if (at->kind == EventKind::kWoken) {
                const ThreadEvent* slept = lastOf({events.begin(), at}, isSwitch);
                if (slept == nullptr || slept->kind != EventKind::kBlocks) continue;
                add(sinceNs, endNs, Part::kRunnable, thread);
                endNs = std::clamp(slept->timeNs, beginNs, sinceNs);
                if (endNs < sinceNs) waited(*at, endNs, sinceNs, depth);
                at = slept;
            } else if (isSwitch(*at)) {
                add(sinceNs, endNs, since(events, *at), thread);
                endNs = sinceNs;
            }
        }
    }

    // What a thread does after a switch.
    static Part since(ThreadEvents events, const ThreadEvent& change) {
        if (change.kind == EventKind::kRuns) return Part::kRunning;
        if (change.kind == EventKind::kPreempted) return Part::kRunnable;
        // It sleeps, and nobody has woken it yet, or did so while it was on its way.
        const ThreadEvent* early = lastOf({events.begin(), &change}, [](const ThreadEvent& event) {
            return event.kind == EventKind::kWoken;
        });
        const bool wokenEarly = early != nullptr && change.timeNs - early->timeNs < kWokenEarlyNs;
        return wokenEarly ? Part::kRunnable : Part::kStage;
    }

    void waited(const ThreadEvent& wake, int64_t asleepNs, int64_t wokenNs, int depth) {
        const bool overIdle = wake.other == kIdleThread;
        int waker = wake.other;
        if (mScheduling.isDequeuing(wake.thread, wokenNs))
            return add(asleepNs, wokenNs, Part::kBuffer, wake.thread);
        if (wake.interrupt || overIdle) {
            waker = mScheduling.usualInterrupted(wake.thread);
            if (waker == kIdleThread || waker != wake.other)
                return add(asleepNs, wokenNs, Part::kTimer, wake.thread);
        }
        const std::string& name = mScheduling.nameOf(waker);
        if (tellsVsyncs(name)) return add(asleepNs, wokenNs, Part::kVsync, wake.thread);
        if (isOfGraphics(name)) return add(asleepNs, wokenNs, Part::kFence, wake.thread);
        if (depth >= kMaxDepth || mScheduling.of(waker).first == nullptr)
            return add(asleepNs, wokenNs, Part::kStage, wake.thread);
        back(waker, wokenNs, asleepNs, depth + 1);
    }

    // Without the switches of threads, only what happened inside the calls for a buffer is known.
    void alongSlices(int thread, int64_t endNs) {
        int64_t timeNs = endNs;
        while (timeNs > mBeginNs) {
            const ThreadEvent* end = lastOf(mScheduling.of(thread), timeNs - 1, [](const auto& e) {
                return e.kind == EventKind::kDequeued;
            });
            if (end == nullptr || end->timeNs <= mBeginNs) break;
            const ThreadEvent* begin =
                    lastOf(mScheduling.of(thread), end->timeNs,
                           [](const auto& e) { return e.kind == EventKind::kDequeues; });
            if (begin == nullptr) break;
            add(end->timeNs, timeNs, Part::kUnknown, thread);
            add(begin->timeNs, end->timeNs, Part::kBuffer, thread);
            timeNs = std::max(begin->timeNs, mBeginNs);
        }
        add(mBeginNs, timeNs, Part::kUnknown, thread);
    }

    const Scheduling& mScheduling;
    const int64_t mBeginNs;
    Road mSteps;  // the latest first
};

// Who was in a queue call on another thread than the counter's when the counter rose.
int callerAt(const Scheduling& scheduling, int riser, int64_t timeNs) {
    const ThreadEvent* received = lastOf(scheduling.of(riser), timeNs, [](const ThreadEvent& e) {
        return e.kind == EventKind::kCalled;
    });
    return received == nullptr ? -1 : scheduling.callerOf(received->other);
}

int wakerAt(const Scheduling& scheduling, int riser, int64_t timeNs) {
    const ThreadEvent* wake = lastOf(scheduling.of(riser), timeNs, [](const ThreadEvent& e) {
        return e.kind == EventKind::kWoken;
    });
    return wake == nullptr || wake->interrupt || wake->other == kIdleThread ? -1 : wake->other;
}

}  // namespace

int producerOf(const LayerEvents& layer, const Scheduling& scheduling) {
    std::unordered_map<int, size_t> votes;
    for (size_t i = 0; i < layer.queueTimesNs.size() && i < layer.queueThreads.size(); ++i) {
        const int64_t timeNs = layer.queueTimesNs[i];
        int producer = callerAt(scheduling, layer.queueThreads[i], timeNs);
        if (producer < 0) producer = scheduling.queuingAt(timeNs, layer.queueThreads[i]);
        if (producer < 0) producer = wakerAt(scheduling, layer.queueThreads[i], timeNs);
        if (producer >= 0) ++votes[producer];
    }
    int most = -1;
    for (const auto& [thread, count] : votes) {
        if (most < 0 || count > votes[most]) most = thread;
    }
    return most;
}

std::vector<Road> roadsOf(const LayerEvents& layer, const Scheduling& scheduling, int producer) {
    std::vector<Road> roads;
    for (size_t i = 1; i < layer.queueTimesNs.size(); ++i) {
        roads.push_back(
                Walk(scheduling, layer.queueTimesNs[i - 1]).from(producer, layer.queueTimesNs[i]));
    }
    return roads;
}

Parts partsBetween(const Road& road, int64_t beginNs, int64_t endNs) {
    Parts parts{};
    for (const RoadStep& step : road) {
        const int64_t begin = std::max(step.beginNs, beginNs);
        const int64_t end = std::min(step.endNs, endNs);
        if (begin < end) partOf(parts, step.part) += end - begin;
    }
    return parts;
}

}  // namespace replay
