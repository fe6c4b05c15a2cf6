#include "sim/Strategy.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "sim/SplitMix64.h"

namespace sim {

namespace {

// Rates of clock jumps that find starvation bugs soon without drowning ordinary schedules.
constexpr uint32_t kJumpMinPpm = 5'000;
constexpr uint32_t kJumpMaxPpm = 50'000;
constexpr uint32_t kSpuriousMaxPpm = 30'000;
constexpr size_t kSeedsPerSpuriousFree = 4;  // one in so many seeds has no spurious wake-ups
constexpr uint32_t kChangeMaxPpm = 500'000;  // of a thread change; halved up to so many times
constexpr size_t kChangeHalvings = 8;
// Of the schedules of few switches.
constexpr size_t kMostSwitches = 4;
constexpr size_t kMostJumps = 3;
constexpr size_t kMostStaleLoads = 3;
constexpr size_t kLatePairHalvings = 4;  // of the pairs of thread and cell; up to so many times

std::string percent(uint32_t ppm) {
    std::string hundredths = std::to_string(ppm / 100 % 100);
    return std::to_string(ppm / 10'000) + (hundredths.size() < 2 ? ".0" : ".") + hundredths + " %";
}

}  // namespace

Strategy::Strategy(const Options& options)
      : mState(options.seed),
        mSeed(options.seed),
        mExpectedSteps(options.expectedSteps),
        mChoices(options.choices),
        mClockJumps(options.clockJumps),
        mDeparturesLeft(options.departures),
        mStaleLoadsLeft(options.staleLoads) {
    switch (options.schedule) {
        case Schedule::kFirstCome:
            return;
        case Schedule::kRandom:
            drawRandom();
            break;
        case Schedule::kPriorityChanges:
            mKind = Kind::kPriorityChanges;
            drawFewSwitches();
            break;
        case Schedule::kFewPreemptions:
            mKind = Kind::kFewPreemptions;
            drawFewSwitches();
            break;
        case Schedule::kAll:
            mKind = Kind::kAll;
            return;
    }
    if (options.staleForNs != 0) drawStaleLoads();
    if (options.clockJumps) return;
    mJumpPpm = 0;
    mJumps.clear();
}

void Strategy::drawRandom() {
    constexpr Kind kKinds[] = {Kind::kUniform, Kind::kSticky, Kind::kPriorities};
    mKind = kKinds[below(std::size(kKinds))];
    mChangePpm = kChangeMaxPpm >> below(kChangeHalvings);
    mJumpPpm = kJumpMinPpm + static_cast<uint32_t>(below(kJumpMaxPpm - kJumpMinPpm + 1));
    const bool spurious = below(kSeedsPerSpuriousFree) != 0;
    mSpuriousPpm = spurious ? static_cast<uint32_t>(below(kSpuriousMaxPpm + 1)) : 0;
}

void Strategy::drawFewSwitches() {
    mSwitches = drawSteps(kMostSwitches);
    mJumps = drawSteps(kMostJumps);
}

// As if nothing had been drawn: a library without shared cells is not to be disturbed otherwise.
void Strategy::drawStaleLoads() {
    const uint64_t state = mState;
    mStalePpm = kChangeMaxPpm >> below(kChangeHalvings);
    mStaleLoads = drawSteps(kMostStaleLoads);
    if (below(2) == 0) mLatePairs = uint64_t{1} << below(kLatePairHalvings);
    mState = state;
}

// Up to so many steps of the run, the first one last.
std::vector<uint64_t> Strategy::drawSteps(size_t most) {
    std::vector<uint64_t> steps(below(most + 1));
    for (uint64_t& step : steps) step = 1 + below(static_cast<size_t>(mExpectedSteps));
    std::sort(steps.begin(), steps.end(), std::greater<>());
    return steps;
}

void Strategy::beginStep() {
    ++mStep;
    mJumped = false;
}

bool Strategy::isDue(std::vector<uint64_t>& steps) {
    if (steps.empty() || steps.back() > mStep) return false;
    steps.pop_back();
    return true;
}

bool Strategy::jumpsClock(bool hasDeadline) {
    switch (mKind) {
        case Kind::kAll:
            mJumped = hasDeadline && mClockJumps && mDeparturesLeft > 0 && mChoices->choose(2) == 1;
            if (mJumped) --mDeparturesLeft;
            return mJumped;
        case Kind::kPriorityChanges:
        case Kind::kFewPreemptions:
            return isDue(mJumps) && hasDeadline;
        default:
            return chance(mJumpPpm) && hasDeadline;
    }
}

uint64_t Strategy::draw() {
    return splitMix64(mState);
}

size_t Strategy::below(size_t limit) {
    return static_cast<size_t>(((draw() >> 32) * limit) >> 32);
}

void Strategy::addThread() {
    if (mKind == Kind::kPriorities || mKind == Kind::kPriorityChanges)
        mPriorities.push_back(static_cast<int64_t>(draw() >> 1));
}

size_t Strategy::choose(const std::vector<Thread*>& ready, const Thread* current) {
    if (mCalm) return current ? ready.size() : 0;
    switch (mKind) {
        case Kind::kFirstCome:
            return current ? ready.size() : 0;
        case Kind::kUniform:
            return below(ready.size() + (current ? 1 : 0));
        case Kind::kSticky:
            return chooseSticky(ready, current);
        case Kind::kPriorities:
            return chooseByPriority(ready, current, chance(mChangePpm));
        case Kind::kPriorityChanges:
            return chooseByPriority(ready, current, current && isDue(mSwitches));
        case Kind::kFewPreemptions:
            if (current && !isDue(mSwitches)) return ready.size();
            return below(ready.size());
        case Kind::kAll:
            return chooseNext(ready.size(), current != nullptr);
    }
    return 0;
}

// Who comes if nobody departs from it: the running thread, or the longest waiting one.
size_t Strategy::chooseNext(size_t ready, bool mayStay) {
    const bool paid = std::exchange(mJumped, false);
    const size_t choice =
            paid || mDeparturesLeft > 0 ? mChoices->choose(ready + (mayStay ? 1 : 0)) : 0;
    if (choice != 0 && !paid) --mDeparturesLeft;
    if (!mayStay) return choice;
    return choice == 0 ? ready : choice - 1;
}

bool Strategy::isAlwaysLate(const Thread& thread, size_t cell) const {
    uint64_t pair = mSeed ^ static_cast<uint64_t>(thread.record.id) << 32 ^ cell;
    return splitMix64(pair) % mLatePairs == 0;
}

size_t Strategy::chooseAge(size_t ages, const Thread& thread, size_t cell) {
    if (ages < 2 || mCalm) return 0;
    if (mLatePairs != 0) return isAlwaysLate(thread, cell) ? ages - 1 : 0;
    switch (mKind) {
        case Kind::kFirstCome:
            return 0;
        case Kind::kUniform:
        case Kind::kSticky:
        case Kind::kPriorities:
            return chance(mStalePpm) ? below(ages) : 0;
        case Kind::kPriorityChanges:
        case Kind::kFewPreemptions:
            return isDue(mStaleLoads) ? 1 + below(ages - 1) : 0;
        case Kind::kAll: {
            const size_t age = mStaleLoadsLeft > 0 ? mChoices->choose(ages) : 0;
            if (age != 0) --mStaleLoadsLeft;
            return age;
        }
    }
    return 0;
}

size_t Strategy::chooseSticky(const std::vector<Thread*>& ready, const Thread* current) {
    if (current && !chance(mChangePpm)) return ready.size();
    return below(ready.size());
}

size_t Strategy::chooseByPriority(const std::vector<Thread*>& ready, const Thread* current,
                                  bool demotes) {
    const size_t first = highest(ready, current);
    if (!demotes) return first;
    const Thread* demoted = first < ready.size() ? ready[first] : current;
    mPriorities[static_cast<size_t>(demoted->record.id)] = mLowestPriority--;
    return highest(ready, current);
}

size_t Strategy::highest(const std::vector<Thread*>& ready, const Thread* current) const {
    const auto priority = [this](const Thread* thread) {
        return mPriorities[static_cast<size_t>(thread->record.id)];
    };
    const Thread* best = current;
    size_t index = ready.size();
    for (size_t i = 0; i < ready.size(); ++i) {
        if (best && priority(ready[i]) <= priority(best)) continue;
        best = ready[i];
        index = i;
    }
    return index;
}

std::string Strategy::describe() const {
    if (mKind == Kind::kFirstCome) return "first-come schedule, the same for every seed";
    if (mKind == Kind::kAll) return "one of all schedules";
    std::string text = "replay with seed " + std::to_string(mSeed) + ", ";
    if (mKind == Kind::kPriorityChanges) return text + "schedule of few priority changes";
    if (mKind == Kind::kFewPreemptions) return text + "schedule of few preemptions";
    text += "random schedule (";
    if (mKind == Kind::kUniform) text += "any thread at every step";
    if (mKind == Kind::kSticky) text += "thread left at " + percent(mChangePpm) + " of the steps";
    if (mKind == Kind::kPriorities) text += "priorities, demotion at " + percent(mChangePpm);
    return text + ", clock jumps " + percent(mJumpPpm) + ", spurious wake-ups " +
           percent(mSpuriousPpm) + ")";
}

}  // namespace sim
