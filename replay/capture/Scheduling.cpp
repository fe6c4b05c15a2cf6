#include "replay/capture/Scheduling.h"

#include <algorithm>
#include <charconv>

#include "replay/base/Text.h"

namespace replay {

namespace {

using Kind = ThreadEvent::Kind;

// A quarter of an hour of a busy phone. Beyond, frames are divided no further.
constexpr size_t kMaxEvents = 8 * 1024 * 1024;
constexpr size_t kMaxThreads = 64 * 1024;
constexpr size_t kMaxLayers = 4096;
constexpr size_t kMaxDepth = 64;
constexpr int kMaxSlots = 64;
constexpr std::string_view kNoName = "<...>";  // ftrace has forgotten it
constexpr char kModernCounter[] = "BufferTX - ";
// "1.ui over 1.main, nearly always" is a hand-over; interrupts of devices come over anyone.
constexpr int kUsualShare = 2;

// "name=123": the digits behind the name, which is looked for from `from` on.
bool number(std::string_view text, std::string_view name, int& value, size_t from = 0) {
    const size_t at = text.find(name, from);
    if (at == std::string_view::npos) return false;
    const std::string_view digits = text.substr(at + name.size());
    return std::from_chars(digits.data(), digits.data() + digits.size(), value).ec == std::errc();
}

// "comm=NAME pid=": a name may hold blanks.
std::string_view nameBetween(std::string_view text, std::string_view before,
                             std::string_view after) {
    const size_t at = text.find(before);
    if (at == std::string_view::npos) return {};
    const size_t begin = at + before.size();
    const size_t end = text.find(after, begin);
    return end == std::string_view::npos ? std::string_view() : text.substr(begin, end - begin);
}

Kind sliceOf(std::string_view name) {
    if (startsWith(name, "dequeueBuffer")) return Kind::kDequeues;
    if (startsWith(name, "queueBuffer")) return Kind::kQueues;
    return Kind::kOpens;
}

Kind endOf(Kind begin) {
    return begin == Kind::kDequeues ? Kind::kDequeued : Kind::kQueued;
}

}  // namespace

ThreadEvents Scheduling::of(int thread) const {
    const auto found = mRanges.find(thread);
    if (found == mRanges.end()) return {};
    return {mEvents.data() + found->second.first, mEvents.data() + found->second.second};
}

const std::string& Scheduling::nameOf(int thread) const {
    static const std::string kNone;
    const auto found = mNames.find(thread);
    return found == mNames.end() ? kNone : found->second;
}

int Scheduling::callerOf(int transaction) const {
    const auto found = mCallers.find(transaction);
    return found == mCallers.end() ? -1 : found->second;
}

bool Scheduling::isDequeuing(int thread, int64_t timeNs) const {
    const ThreadEvent* slice = lastOf(of(thread), timeNs, [](const ThreadEvent& event) {
        return event.kind == Kind::kDequeues || event.kind == Kind::kDequeued;
    });
    return slice != nullptr && slice->kind == Kind::kDequeues;
}

int Scheduling::queuingAt(int64_t timeNs, int riser) const {
    int found = -1;
    for (const int thread : mQueuing) {
        const ThreadEvent* slice = lastOf(of(thread), timeNs, [](const ThreadEvent& event) {
            return event.kind == Kind::kQueues || event.kind == Kind::kQueued;
        });
        if (thread == riser || slice == nullptr || slice->kind != Kind::kQueues) continue;
        if (found >= 0) return -1;
        found = thread;
    }
    return found;
}

int Scheduling::usualInterrupted(int thread) const {
    const auto found = mInterrupted.find(thread);
    return found == mInterrupted.end() ? kIdleThread : found->second;
}

int Scheduling::slotsOf(const std::string& counter) const {
    const size_t prefix = startsWith(counter, kModernCounter) ? sizeof(kModernCounter) - 1 : 0;
    for (const std::string& name : {counter, counter.substr(prefix)}) {
        const auto found = mSlots.find(name);
        if (found != mSlots.end()) return __builtin_popcountll(found->second);
    }
    return 0;
}

void SchedulingBuilder::add(int64_t timeNs, int thread, Kind kind, int other, bool interrupt) {
    if (mResult.mEvents.size() >= kMaxEvents) {
        ++mLeftOut;
        return;
    }
    mResult.mEvents.push_back({timeNs, thread, other, kind, interrupt});
}

void SchedulingBuilder::addName(int thread, std::string_view name) {
    if (name.empty() || mResult.mNames.size() >= kMaxThreads) return;
    std::string& known = mResult.mNames[thread];
    if (known != name) known = name;
}

void SchedulingBuilder::addSwitch(int64_t timeNs, int from, bool runnable, int to) {
    mResult.mHasSwitches = true;
    if (from != kIdleThread) add(timeNs, from, runnable ? Kind::kPreempted : Kind::kBlocks);
    if (to != kIdleThread) add(timeNs, to, Kind::kRuns);
}

// The wake-up may be seen on another processor than that of the waker; the waking never is.
void SchedulingBuilder::addWake(int64_t timeNs, bool early, int waker, int woken, bool interrupt) {
    if (!early && mHasWakings) return;
    if (early && !mHasWakings) {
        std::vector<ThreadEvent>& events = mResult.mEvents;
        events.erase(std::remove_if(events.begin(), events.end(),
                                    [](const ThreadEvent& e) { return e.kind == Kind::kWoken; }),
                     events.end());
        mHasWakings = true;
    }
    add(timeNs, woken, Kind::kWoken, waker, interrupt);
}

void SchedulingBuilder::addCall(int64_t timeNs, int caller, int transaction) {
    add(timeNs, caller, Kind::kCalls, transaction);
}

void SchedulingBuilder::addCalled(int64_t timeNs, int callee, int transaction) {
    add(timeNs, callee, Kind::kCalled, transaction);
}

void SchedulingBuilder::parseSwitch(int64_t timeNs, std::string_view payload) {
    const size_t arrow = payload.find(" ==> ");
    int from = 0;
    int to = 0;
    const size_t state = payload.find(" prev_state=");
    if (arrow == std::string_view::npos || state == std::string_view::npos) return;
    if (!number(payload, " prev_pid=", from) || !number(payload, " next_pid=", to, arrow)) return;
    addName(from, nameBetween(payload, "prev_comm=", " prev_pid="));
    addName(to, nameBetween(payload.substr(arrow), "next_comm=", " next_pid="));
    addSwitch(timeNs, from, startsWith(payload.substr(state), " prev_state=R"), to);
}

void SchedulingBuilder::addEvent(const FtraceLine& line) {
    int thread = 0;
    if (line.function == "sched_switch") {
        parseSwitch(line.timeNs, line.payload);
    } else if (line.function == "sched_wakeup" || line.function == "sched_waking") {
        if (!number(line.payload, " pid=", thread)) return;
        addName(thread, nameBetween(line.payload, "comm=", " pid="));
        if (line.task != kNoName) addName(line.pid, line.task);
        addWake(line.timeNs, line.function == "sched_waking", line.pid, thread, line.interrupt);
    } else if (line.function == "binder_transaction") {
        if (number(line.payload, "transaction=", thread)) addCall(line.timeNs, line.pid, thread);
    } else if (line.function == "binder_transaction_received") {
        if (number(line.payload, "transaction=", thread)) addCalled(line.timeNs, line.pid, thread);
    }
}

// "LAYER: slot" or "LAYER: slot: frame", by the compositor as a buffer is queued.
void SchedulingBuilder::noteSlot(std::string_view name) {
    const size_t colon = name.find(": ");
    if (colon == std::string_view::npos || name.find("SurfaceView") == std::string_view::npos)
        return;
    int slot = 0;
    const std::string_view digits = name.substr(colon + 2);
    if (std::from_chars(digits.data(), digits.data() + digits.size(), slot).ec != std::errc() ||
        slot < 0 || slot >= kMaxSlots || mResult.mSlots.size() >= kMaxLayers)
        return;
    mResult.mSlots[std::string(name.substr(0, colon))] |= uint64_t{1} << slot;
}

void SchedulingBuilder::addMarker(const Marker& marker) {
    const std::string_view text = marker.payload;
    if (text.empty()) return;
    if (text.front() == 'E') return add(marker.timeNs, marker.thread, Kind::kCloses);
    if (text.front() != 'B') return;
    const size_t bar = text.find('|', 2);
    const std::string_view name = bar == std::string_view::npos ? "" : text.substr(bar + 1);
    add(marker.timeNs, marker.thread, sliceOf(name));
    if (sliceOf(name) == Kind::kOpens) noteSlot(name);
}

std::string SchedulingBuilder::lost() const {
    return mLeftOut == 0 ? ""
                         : std::to_string(mLeftOut) + " scheduling events beyond the first " +
                                   std::to_string(kMaxEvents) + " left out";
}

// Only now are the events of a thread in their order.
void SchedulingBuilder::nestSlices() {
    std::vector<Kind> open;  // innermost last
    int thread = -1;
    size_t kept = 0;
    for (ThreadEvent& event : mResult.mEvents) {
        if (event.thread != thread || open.size() > kMaxDepth) open.clear();
        thread = event.thread;
        const bool opens = event.kind == Kind::kOpens || event.kind == Kind::kDequeues ||
                           event.kind == Kind::kQueues;
        if (opens) open.push_back(event.kind);
        if (event.kind == Kind::kCloses && !open.empty()) {
            if (open.back() != Kind::kOpens) event.kind = endOf(open.back());
            open.pop_back();
        }
        if (event.kind == Kind::kOpens || event.kind == Kind::kCloses) continue;
        mResult.mEvents[kept++] = event;
    }
    mResult.mEvents.resize(kept);
    mResult.mEvents.shrink_to_fit();
}

void SchedulingBuilder::index() {
    const std::vector<ThreadEvent>& events = mResult.mEvents;
    for (size_t begin = 0, end = 0; begin < events.size(); begin = end) {
        const int thread = events[begin].thread;
        std::unordered_map<int, int> over;  // which threads interrupts came
        bool queues = false;
        for (end = begin; end < events.size() && events[end].thread == thread; ++end) {
            const ThreadEvent& event = events[end];
            if (event.kind == Kind::kCalls) mResult.mCallers[event.other] = thread;
            if (event.kind == Kind::kWoken && event.interrupt) ++over[event.other];
            queues = queues || event.kind == Kind::kQueues;
        }
        mResult.mRanges[thread] = {begin, end};
        if (queues) mResult.mQueuing.push_back(thread);
        int all = 0;
        for (const auto& [interrupted, count] : over) all += count;
        for (const auto& [interrupted, count] : over) {
            if (kUsualShare * count > all) mResult.mInterrupted[thread] = interrupted;
        }
    }
}

Scheduling SchedulingBuilder::build(int64_t originNs) {
    std::vector<ThreadEvent>& events = mResult.mEvents;
    for (ThreadEvent& event : events) event.timeNs -= originNs;
    std::stable_sort(events.begin(), events.end(), [](const ThreadEvent& a, const ThreadEvent& b) {
        return std::make_pair(a.thread, a.timeNs) < std::make_pair(b.thread, b.timeNs);
    });
    nestSlices();
    index();
    return std::move(mResult);
}

}  // namespace replay
