#pragma once

// Who ran when and who woke whom: what a capture holds besides its counters and what tells a frame's
// work from its waiting. Recognised are sched_switch, sched_wakeup and sched_waking, binder
// transactions, the slices of a buffer's road, and of the compositor's queue slices the slots.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "replay/capture/FtraceLine.h"
#include "replay/capture/Marker.h"

namespace replay {

constexpr int kIdleThread = 0;

// What happened to one thread.
struct ThreadEvent {
    enum class Kind : uint8_t {
        kRuns,       // on a processor
        kPreempted,  // off it, and would go on
        kBlocks,     // off it, until it is woken
        kWoken,      // by `other`
        kDequeues,   // dequeueBuffer begins
        kDequeued,   // and ends
        kQueues,     // queueBuffer begins
        kQueued,     // and ends
        kCalls,      // sends the binder transaction `other`
        kCalled,     // receives it
        kOpens,      // another slice begins; only while a capture is read
        kCloses,     // a slice ends, whichever is open; likewise
    };

    int64_t timeNs = 0;
    int32_t thread = 0;
    int32_t other = 0;
    Kind kind = Kind::kRuns;
    // Of kWoken: in an interrupt, which merely came over `other`.
    bool interrupt = false;
};

// Of one thread, ascending.
struct ThreadEvents {
    const ThreadEvent* first = nullptr;
    const ThreadEvent* last = nullptr;
    const ThreadEvent* begin() const { return first; }
    const ThreadEvent* end() const { return last; }
};

// The first event after the time.
inline const ThreadEvent* firstAfter(ThreadEvents events, int64_t timeNs) {
    return std::upper_bound(events.begin(), events.end(), timeNs,
                            [](int64_t time, const ThreadEvent& e) { return time < e.timeNs; });
}

// The last one that fits, or none.
template <typename Fits>
const ThreadEvent* lastOf(ThreadEvents events, Fits&& fits) {
    for (const ThreadEvent* event = events.end(); event != events.begin();) {
        if (fits(*--event)) return event;
    }
    return nullptr;
}

template <typename Fits>
const ThreadEvent* lastOf(ThreadEvents events, int64_t timeNs, Fits&& fits) {
    return lastOf({events.begin(), firstAfter(events, timeNs)}, fits);
}

// All of a capture. Times are ns since its first event. Immutable once built; of threads that the
// capture does not cover there is nothing.
class Scheduling {
  public:
    // Makes all times earlier by so much.
    void moveOrigin(int64_t byNs) {
        for (ThreadEvent& event : mEvents) event.timeNs -= byNs;
    }
    bool hasSwitches() const { return mHasSwitches; }
    bool empty() const { return mEvents.empty(); }
    ThreadEvents of(int thread) const;
    template <typename Use>
    void forEachWake(Use&& use) const {
        for (const ThreadEvent& event : mEvents)
            if (event.kind == ThreadEvent::Kind::kWoken) use(event);
    }
    // Empty if the capture does not tell.
    const std::string& nameOf(int thread) const;
    // The caller of a binder transaction; nothing known: -1.
    int callerOf(int transaction) const;
    // How many of the layer's slots were queued, 0 if the capture does not tell. `counter` is the
    // layer's counter.
    int slotsOf(const std::string& counter) const;
    // The only thread besides `riser` that is inside queueBuffer then; -1 if there is none.
    int queuingAt(int64_t timeNs, int riser) const;
    // Inside dequeueBuffer.
    bool isDequeuing(int thread, int64_t timeNs) const;
    // Where interrupts that wake the thread come over, if that is mostly one thread: an event loop
    // that hands over to another by a timer of no time. Otherwise kIdleThread.
    int usualInterrupted(int thread) const;

  private:
    friend class SchedulingBuilder;

    std::vector<ThreadEvent> mEvents;  // by thread, then by time
    std::unordered_map<int, std::pair<size_t, size_t>> mRanges;
    std::unordered_map<int, std::string> mNames;
    std::unordered_map<int, int> mCallers;
    std::unordered_map<int, int> mInterrupted;
    std::vector<int> mQueuing;                            // threads that call queueBuffer
    std::map<std::string, uint64_t, std::less<>> mSlots;  // a bit each
    bool mHasSwitches = false;
};

// Gathers it, in the order of the capture, times on its own clock. What makes no sense is passed
// over: nothing here is needed to replay a capture. Single-threaded.
class SchedulingBuilder {
  public:
    // An event of the kernel as ftrace prints it.
    void addEvent(const FtraceLine& line);
    void addMarker(const Marker& marker);

    void addSwitch(int64_t timeNs, int from, bool runnable, int to);
    // `early` is the waking on the waker's processor, not the wake-up on that of the woken.
    void addWake(int64_t timeNs, bool early, int waker, int woken, bool interrupt);
    void addCall(int64_t timeNs, int caller, int transaction);
    void addCalled(int64_t timeNs, int callee, int transaction);
    void addName(int thread, std::string_view name);

    // What was left out; empty if nothing.
    std::string lost() const;
    Scheduling build(int64_t originNs);

  private:
    void add(int64_t timeNs, int thread, ThreadEvent::Kind kind, int other = 0,
             bool interrupt = false);
    void parseSwitch(int64_t timeNs, std::string_view payload);
    void noteSlot(std::string_view name);
    void nestSlices();
    void index();

    Scheduling mResult;
    bool mHasWakings = false;
    uint64_t mLeftOut = 0;
};

}  // namespace replay
