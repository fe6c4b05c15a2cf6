#include "tests/reliability/Watch.h"

#include <sched.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>

#include "tests/reliability/Violation.h"

using device::EntryPoint;
using device::Event;
using device::EventKind;

namespace reliability {

namespace {

constexpr int kBoostHint = 4166;
constexpr int kNegativeFlag = 0x10000;
constexpr int kLongBoostMs = 1000;
// The floor of the coefficient, seen from the highest threshold and rescaled to the lowest.
constexpr int kMostStrength = 45;

constexpr int64_t kLongestPeriodNs = 16'666'667;
constexpr int64_t kShortestPeriodNs = 8'333'333;
// One buffer: a period, the passes that look for a report, and another period.
constexpr int64_t kHoldNs = 2 * kLongestPeriodNs + 3 * kMs;
// A monitor that misses the stop by a hair finishes its pass.
constexpr int64_t kStopNs = kSecond + 6 * kLongestPeriodNs;
constexpr int64_t kDrainNs = 20 * kMs;
constexpr int kMostTrackers = 2;

bool isTrackerThread(const sim::ThreadRecord& thread) {
    return thread.policy == SCHED_FIFO;
}

bool startsWith(const std::string& text, const char* start) {
    return text.rfind(start, 0) == 0;
}

void checkRange(const std::string& text, const char* start, long low, long high) {
    if (!startsWith(text, start)) return;
    const long value = std::atol(text.c_str() + std::string(start).size());
    if (value < low || value > high) violate("values-in-range", text);
}

bool isKnownBoost(int duration, int type) {
    constexpr int kKnown[][2] = {{0, 0}, {8, 1500}, {16, 2000}, {kLongBoostMs, 10000}};
    return std::any_of(std::begin(kKnown), std::end(kKnown),
                       [&](const auto& known) { return known[0] == duration && known[1] == type; });
}

// To a library that never ceases to listen.
bool tellsPeriodsInTurn(const CallProgram& program) {
    const auto tells = [](const std::vector<Op>& ops) {
        return std::any_of(ops.begin(), ops.end(),
                           [](const Op& op) { return op.act == Act::kPeriod; });
    };
    return std::count_if(program.threads.begin(), program.threads.end(), tells) <= 1 &&
           !program.uses(Act::kInit);
}

template <typename T>
T& at(std::vector<T>& values, int index) {
    const auto position = static_cast<size_t>(index);
    if (values.size() <= position) values.resize(position + 1);
    return values[position];
}

}  // namespace

const char* invariantOf(sim::Failure failure) {
    switch (failure) {
        case sim::Failure::kDeadlock:
            return "no-deadlock";
        case sim::Failure::kThreadNotJoined:
            return "threads-joined";
        case sim::Failure::kMisuse:
            return "locks-well-used";
        case sim::Failure::kBareSignal:
            return "signals-under-lock";
        case sim::Failure::kUnorderedPointer:
            return "published-with-order";
        case sim::Failure::kUnorderedEnd:
            return "destroyed-after-use";
        case sim::Failure::kLockOrder:
            return "lock-order";
        default:
            return "no-livelock";
    }
}

const std::array<const char*, Reached::kCount>& Reached::names() {
    static const std::array<const char*, kCount> kNames{
            "environment built", "boosted", "boosted for long", "buffer held", "tracker retired"};
    return kNames;
}

Watch::Watch(const CallProgram& program, bool exactTimes, bool spuriousWakes, bool unexpecting)
      : mProgram(program),
        mExactTimes(exactTimes),
        mSpuriousWakes(spuriousWakes),
        mUnexpecting(unexpecting || program.failThread != 0),
        mSolo(program.isSolo()),
        mFollowsPeriod(mSolo && !mayForget() && tellsPeriodsInTurn(program)) {}

void Watch::see(const Event& event) {
    if (mGone) violate("nothing-after-unload", device::describe(event));
    vsyncIsServed();
    if (event.kind == EventKind::kServiceCall) return seeCall(event);
    if (event.kind == EventKind::kLog) return seeLog(event);
    seeSection(event);
}

void Watch::seeCall(const Event& event) {
    // The device's own lock is one of them.
    checkSender(event, sim::heldMutexes().size() - 1);
    mReached.calledEntryPoints |= 1U << static_cast<unsigned>(event.entryPoint);
    mServed.push_back({event.timeNs, event.timeNs + event.takesNs});
    if (event.entryPoint == EntryPoint::kPerfGetFeedback) seeQuestion(event);
    if (event.entryPoint == EntryPoint::kPerfGetFeedbackExtn) {
        ++mEnvironments;
        mReached.environment = true;
    }
    if (event.entryPoint == EntryPoint::kPerfHint && event.arguments[0] == kBoostHint)
        seeHint(event);
}

// A package that was found to be a game is known from then on; asked about again, its layer gets a
// second tracker.
void Watch::seeQuestion(const Event& event) {
    if (mayForget() || std::atoi(event.result.c_str()) == 0) return;
    if (!mGames.insert(event.text).second) violate("asked-once", device::describe(event));
}

// Who may call what, and how many locks may be held then: an initialisation its own, an increment
// that builds the environment or switches power optimisation the work lock, the monitor the state
// lock and where it is a negative boost the controller's, the boost thread its lock, and the
// checker none.
void Watch::checkSender(const Event& event, size_t held) const {
    const sim::ThreadRecord& thread = sim::self();
    const auto id = static_cast<size_t>(thread.id);
    const char call = id < mCalls.size() ? mCalls[id].letter : '\0';
    const bool tracker = isTrackerThread(thread);
    const bool queues = call == static_cast<char>(Act::kQueue);
    const bool initialises = call == static_cast<char>(Act::kInit);
    const bool checker = !tracker && call == '\0' && thread.id != 0;
    const bool hint = event.entryPoint == EntryPoint::kPerfHint;
    bool allowed = false;
    size_t locks = 1;
    if (hint && event.arguments[0] == kBoostHint) {
        allowed = tracker;
        if ((event.arguments[2] & kNegativeFlag) != 0) locks = 2;
    } else if (hint || event.entryPoint == EntryPoint::kPerfGetFeedbackExtn) {
        allowed = queues;
    } else if (event.entryPoint == EntryPoint::kPerfGetFeedback) {
        allowed = checker;
        locks = 0;
    } else if (event.entryPoint == EntryPoint::kIsFeatureEnabled) {
        allowed = initialises;
    } else if (event.entryPoint == EntryPoint::kPerfLockAcq ||
               event.entryPoint == EntryPoint::kPerfLockRel) {
        allowed = tracker || queues;
    } else {
        allowed = initialises || queues;
    }
    const std::string where = device::describe(event) + " on thread " + std::to_string(thread.id) +
                              " " + thread.name + ", " + std::to_string(held) + " locks held";
    if (!allowed) violate("who-sends", where);
    if (held != locks) violate("locks-in-service", where);
}

void Watch::seeHint(const Event& event) {
    const int duration = event.arguments[1];
    const int type = event.arguments[2];
    if ((type & kNegativeFlag) != 0) {
        const int strength = type - kNegativeFlag;
        const bool released = duration == 0 && strength == 0;
        const bool inRange = mUnexpecting || (strength >= 0 && strength <= kMostStrength);
        if (!released && (duration != 500 || !inRange))
            violate("known-requests", device::describe(event));
        return;
    }
    if (!isKnownBoost(duration, type)) violate("known-requests", device::describe(event));
    mReleaseDue = false;
    mLongBoostNs = -1;
    if (type == 0) {
        ++mReleases;
        return;
    }
    ++mBoostsHandled;
    mReached.boost = true;
    if (duration != kLongBoostMs) return;
    mReached.longBoost = true;
    ++mLongBoosts;
    mLongBoostNs = event.timeNs;
}

void Watch::seeLog(const Event& event) {
    constexpr int kError = 6;
    if (mustBeQuiet() && event.priority != kError)
        violate("quiet-without-debug", device::describe(event));
    for (const char* line : {"reation Failed", "thread create failed!"})
        mReached.lostThreads += event.text.find(line) != std::string::npos ? 1 : 0;
    const size_t thresh = event.text.find("curr thresh:");
    if (thresh != std::string::npos) checkRange(event.text.substr(thresh), "curr thresh:", 60, 90);
    if (event.text == "~BufferLayerTracker" && mUnloadNs == 0) mReached.retirement = true;
    std::sscanf(event.text.c_str(), "vsync: %" SCNd64, &mPacedPeriodNs);
    if (event.text == "enable FrameRegulator") {
        mRegulatorOn = true;
        ++mRegulators;
    } else if (event.text == "disable FrameRegulator") {
        mRegulatorOn = mReleaseDue = false;
        --mRegulators;
    }
}

void Watch::seeSection(const Event& event) {
    const sim::ThreadRecord& thread = sim::self();
    const bool begins = event.kind == EventKind::kTraceBegin;
    if (mustBeQuiet()) violate("quiet-without-debug", device::describe(event));
    if (begins) seeMarker(event.text);
    if (thread.name == "PHR") ++mTurns;
    if (!begins && thread.name == "PHR") seeRelease();
    const bool inCall = at(mCalls, thread.id).letter != '\0';
    if (!isTrackerThread(thread) && !inCall) return;  // the checker's switch may change in between
    int& open = at(mOpenSections, thread.id);
    open += begins ? 1 : -1;
    if (open < 0) violate("sections-balanced", "an end without a beginning");
}

// The headroom thread's only section ends with the release.
void Watch::seeRelease() {
    if (mQueuedNs >= 0 && !mReleaseIsSpent && mReleasedNs < 0) mReleasedNs = sim::now();
    mReleaseIsSpent = false;
}

// At the moment of the vsync, if not before: the thread waits whenever the vsync can take its lock.
void Watch::vsyncIsServed() {
    if (mVsyncNs < 0 || sim::now() == mVsyncNs) return;
    if (mTurns == mTurnsAtVsync) violate("vsync-turns-headroom", "nothing came of it");
    mVsyncNs = -1;
}

void Watch::followQueueing(const std::string& text) {
    if (text == "trackQueueBuffer") {
        mQueuedNs = sim::now();
        mReleasedNs = -1;
    } else if (text == "timer expired" || text == "delay finish") {
        if (mExactTimes && mReleasedNs >= 0 && sim::now() > mReleasedNs)
            violate("release-taken", "held " + std::to_string(sim::now() - mReleasedNs) +
                                             " ns longer than to the release");
        // After a wait that ran out the next release only makes up for it.
        if (sim::now() - mQueuedNs >= kShortestPeriodNs) mReleaseIsSpent = true;
        mQueuedNs = -1;
    }
}

void Watch::seeMarker(const std::string& text) {
    if (mSolo && !mUnexpecting) followQueueing(text);
    if (mSolo && !mUnexpecting && mExactTimes && mTurns > 0 && text == "onVsync") {
        mVsyncNs = sim::now();
        mTurnsAtVsync = mTurns;
    }
    if (!mUnexpecting) checkRange(text, "headroom = ", 6'666'666, 15'000'000);
    checkRange(text, "mBoostExpectationDegree = ", -3, 3);
    if (text == "skip boost") ++mBoostsHandled;
    if (!startsWith(text, "CHECKPOINT")) return;
    ++mMissedCheckpoints;
    // A new request in the place of the old one.
    mReleaseDue = false;
}

int64_t Watch::callBegins(Act act, int layer) {
    at(mCalls, sim::currentThread()) = {static_cast<char>(act), mEndedIncrements};
    if (act == Act::kQueue) ++mBegunIncrements;
    // Only with trace and log can be seen what overtakes the release.
    const bool followed = mSolo && mProgram.has('t') && mProgram.has('d');
    if (followed && act == Act::kQueue && layer == 0 && mRegulatorOn && mLongBoostNs >= 0 &&
        sim::now() > mLongBoostNs + kStaleForNs) {
        mReleaseDue = true;
    }
    return sim::now();
}

void Watch::callEnds(Act act, int64_t startNs) {
    Call& call = at(mCalls, sim::currentThread());
    call.letter = '\0';
    const int64_t tookNs = sim::now() - startNs;
    // A lock is free for anybody: a call may have to wait for all increments that overlap it, but others
    // than increments only where one of these waits for another.
    const int64_t overlapping = mBegunIncrements - call.endedBefore;
    const int64_t increments =
            act == Act::kQueue ? overlapping + 1 : std::max<int64_t>(overlapping - 1, 0);
    if (act == Act::kQueue) ++mEndedIncrements;
    if (act == Act::kQueue && tookNs > 0) mReached.hold = true;
    if (!mExactTimes) return;
    int64_t boundNs = increments * kHoldNs + servedWithin(startNs, sim::now());
    if (!mSolo) boundNs += kMostTrackers * kStopNs;
    if (tookNs <= boundNs) return;
    violate("call-returns-in-time", std::string(1, static_cast<char>(act)) + " took " +
                                            std::to_string(tookNs) + " ns, at most " +
                                            std::to_string(boundNs) + " ns were due");
}

int64_t Watch::servedWithin(int64_t startNs, int64_t endNs) const {
    int64_t sum = 0;
    for (const Served& call : mServed) {
        sum += std::max<int64_t>(0, std::min(endNs, call.endNs) - std::max(startNs, call.startNs));
    }
    return sum;
}

void Watch::checkTrackerThreads() const {
    std::map<std::string, int> alive;
    int all = 0;
    for (const sim::ThreadRecord& thread : sim::threads()) {
        if (thread.ended || !isTrackerThread(thread)) continue;
        ++all;
        ++alive[thread.name];
    }
    for (const auto& [name, count] : alive) {
        if (!name.empty() && count > kMostTrackers)
            violate("two-trackers", std::to_string(count) + " threads " + name);
    }
    if (all > 3 * kMostTrackers) violate("two-trackers", std::to_string(all) + " threads");
}

void Watch::gamesAreTracked(int games) const {
    if (mUnexpecting || mEnvironments == games) return;
    violate("games-tracked", std::to_string(mEnvironments) + " of " + std::to_string(games));
}

void Watch::initAnswered(bool active) {
    if (mInitAnswered && active != mReached.active && !mayForget())
        violate("init-answers-alike", active ? "true after false" : "false after true");
    mInitAnswered = true;
    mReached.active = active;
}

void Watch::periodTold(int index) {
    if (index < kGoodPeriods) mToldPeriodNs = periodNs(index);
}

void Watch::settled() {
    checkTrackerThreads();
    if (mReleaseDue) violate("long-boost-released", "no release after the buffer");
    if (mFollowsPeriod && mPacedPeriodNs >= 0 && mPacedPeriodNs != mToldPeriodNs)
        violate("regulator-knows-period", std::to_string(mPacedPeriodNs) + " ns, not " +
                                                  std::to_string(mToldPeriodNs) + " ns");
    if (mRegulators > 0 && !mReached.retirement && !mUnexpecting)
        violate("regulator-off-in-silence", std::to_string(mRegulators) + " are still on");
}

void Watch::unloadBegins() {
    vsyncIsServed();
    mVsyncNs = -1;  // the stop may be sooner
    checkTrackerThreads();
    mUnloadNs = sim::now();
}

void Watch::unloadEnded() {
    mGone = true;
    for (const sim::ThreadRecord& thread : sim::threads()) {
        if (thread.id != 0 && !thread.ended)
            violate("nothing-after-unload", "thread " + std::to_string(thread.id) + " is left");
    }
    for (const int open : mOpenSections) {
        if (open != 0) violate("sections-balanced", "a section never ended");
    }
    const bool counted = mProgram.has('t') && mProgram.has('d') && !mSpuriousWakes && !mUnexpecting;
    if (counted && mBoostsHandled > mMissedCheckpoints) {
        violate("hint-per-checkpoint", std::to_string(mBoostsHandled) + " boosts for " +
                                               std::to_string(mMissedCheckpoints));
    }
    const int64_t boundNs =
            kMostTrackers * kStopNs + kDrainNs + servedWithin(mUnloadNs, sim::now());
    const int64_t tookNs = sim::now() - mUnloadNs;
    if (mExactTimes && tookNs > boundNs) {
        violate("unload-returns-in-time", std::to_string(tookNs) + " ns, at most " +
                                                  std::to_string(boundNs) + " ns were due");
    }
}

}  // namespace reliability
