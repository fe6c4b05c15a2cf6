#include "sim/Engine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "sim/RealCalls.h"
#include "sim/Report.h"
#include "sim/Unseen.h"

namespace sim {

namespace {

// Enough for a hand-shake between threads that only yield, and cheap at every move of the clock.
constexpr int kYieldRoundsBeforeClock = 3;
// A deadlock is reported once in a run, so looking twice costs little.
constexpr int kYieldRoundsBeforeDeadlock = 1000;

// What stands in the record beside the calls.
constexpr int kNoteOfWait = 100;
constexpr int kNoteOfWake = 200;
constexpr int kNoteOfBeginning = 300;
constexpr int kNoteOfEnd = 301;

void removeFrom(std::vector<Thread*>& threads, const Thread& thread) {
    threads.erase(std::find(threads.begin(), threads.end(), &thread));
}

}  // namespace

Engine::Engine(const Options& options)
      : mOptions(options),
        mLatestNs(addSaturated(options.startTimeNs, options.timeBudgetNs)),
        mStrategy(options),
        mNowNs(options.startTimeNs) {}

void Engine::step(Call call) {
    note(static_cast<int>(call), *mCurrent);
    if (++mSteps > mOptions.stepBudget) {
        fail(Failure::kStepBudget, std::to_string(mOptions.stepBudget) + " steps used up");
    }
    if (mOptions.cpuCostPerCallNs != 0) {
        setClock(addSaturated(mNowNs, mOptions.cpuCostPerCallNs));
    }
    perturb();
}

void Engine::note(int what, const Thread& thread) {
    if (!mOptions.record) return;
    mRecord.add(static_cast<uint64_t>(what));
    mRecord.add(static_cast<uint64_t>(thread.record.id));
    mRecord.add(static_cast<uint64_t>(mNowNs));
}

void Engine::perturb() {
    if (!mStrategy.disturbs()) return;
    mStrategy.beginStep();
    if (mStrategy.jumpsClock(!mTimers.empty())) moveClockToDeadline();
    if (mStrategy.wakesSpuriously()) wakeSomeWaiter();
    if (mReady.empty()) return;
    const size_t choice = mStrategy.choose(mReady, mCurrent);
    if (choice == mReady.size()) return;
    Thread& self = *mCurrent;
    Thread& chosen = *mReady[choice];
    removeFrom(mReady, chosen);
    mReady.push_back(&self);
    passTurn(self.loan.place(), chosen);
}

void Engine::progress() {
    mYieldRounds = 0;
    if (!mYielders.empty()) releaseYielders();
}

Wake Engine::block(const Wait& wait) {
    Thread& self = *mCurrent;
    // What the thread did before is what a spinning one may be looking for.
    if (wait.kind != WaitKind::kYield) progress();
    self.wait = wait;
    note(kNoteOfWait + static_cast<int>(wait.kind), self);
    mRecord.add(static_cast<uint64_t>(wait.deadlineNs));
    if (wait.queue) wait.queue->push_back(&self);
    if (wait.deadlineNs != kNever) addTimer(self);
    Thread& chosen = next();
    if (&chosen != &self) passTurn(self.loan.place(), chosen);
    return self.wake;
}

void Engine::wake(Thread& thread, Wake how) {
    // From its queue at once: a signal must not go to a waiter that a deadline has already woken.
    if (thread.wait.queue) removeFrom(*thread.wait.queue, thread);
    if (thread.wait.deadlineNs != kNever) removeFrom(mTimers, thread);
    thread.wait = Wait{};
    note(kNoteOfWake + static_cast<int>(how), thread);
    thread.wake = how;
    mReady.push_back(&thread);
}

void Engine::yield() {
    block({WaitKind::kYield, 0, kNever, &mYielders});
}

Thread& Engine::admit(std::unique_ptr<Thread> thread) {
    Thread& added = *thread;
    added.record.id = static_cast<int>(mThreads.size());
    mThreads.push_back(std::move(thread));
    mLive.push_back(&added);
    mReady.push_back(&added);
    mStrategy.addThread();
    return added;
}

void Engine::begin() {
    awaitEndedThread();
    note(kNoteOfBeginning, *mCurrent);
    progress();
}

void Engine::end() {
    Thread& self = *mCurrent;
    self.ended = true;
    self.record.ended = true;
    note(kNoteOfEnd, self);
    removeFrom(mLive, self);
    while (!self.joiners.empty()) wake(*self.joiners.front(), Wake::kSignal);
    progress();
    if (isUnderThreadSanitizer()) __tsan_release(this);
    Thread* chosen = mLive.empty() ? nullptr : &next();
    mEnded = &self;
    if (chosen) {
        giveTurn(self.loan.place(), *chosen);
    } else {
        switchTo(self.loan.place(), mCaller);
    }
}

// Takes the next thread to run out of the ready ones, moving the clock if that is what it takes.
Thread& Engine::next() {
    while (mReady.empty()) {
        if (grantYieldersAnotherRound()) continue;
        if (mTimers.empty()) fail(Failure::kDeadlock, describeDeadlock());
        moveClockToDeadline();
    }
    Thread& chosen = *mReady[mStrategy.choose(mReady, nullptr)];
    removeFrom(mReady, chosen);
    return chosen;
}

bool Engine::grantYieldersAnotherRound() {
    // A lone spinner would only look again at what it has just seen.
    if (mYielders.size() < 2) return false;
    const int limit = mTimers.empty() ? kYieldRoundsBeforeDeadlock : kYieldRoundsBeforeClock;
    if (mYieldRounds >= limit) return false;
    ++mYieldRounds;
    releaseYielders();
    return true;
}

std::string Engine::describeDeadlock() const {
    std::string what = "nothing can run and no deadline is left";
    if (!mYielders.empty()) what += " (spinning threads wait for others)";
    if (mThreads.front()->ended) what += "; the body has returned and left threads running";
    return what;
}

void Engine::giveTurn(Place& here, Thread& thread) {
    mCurrent = &thread;
    thread.loan.awaitGiven();
    switchTo(here, thread.loan.place());
}

void Engine::passTurn(Place& here, Thread& thread) {
    giveTurn(here, thread);
    awaitEndedThread();
}

// The last instructions of an ended thread must not run beside a simulated one: they give memory
// back, and thus decide at which addresses the program's next objects stand.
void Engine::awaitEndedThread() {
    if (!mEnded) return;
    Thread& ended = *std::exchange(mEnded, nullptr);
    ended.loan.giveBack();
    while (isAlive(ended.tid)) real::yield();
    if (!ended.detached) return;
    // Detached only now: to join it would, to the thread sanitizer, order it before the current
    // one.
    real::detach(ended.handle);
    ended.joined = true;
}

void Engine::setClock(int64_t timeNs) {
    mNowNs = timeNs;
    while (!mTimers.empty() && mTimers.front()->wait.deadlineNs <= mNowNs) {
        wake(*mTimers.front(), Wake::kDeadline);
    }
    if (mNowNs > mLatestNs) {
        fail(Failure::kTimeBudget,
             std::to_string(mOptions.timeBudgetNs) + " ns of virtual time used up");
    }
}

void Engine::moveClockToDeadline() {
    setClock(std::max(mNowNs, mTimers.front()->wait.deadlineNs));
    // Those whose deadline it is come first, then those who look at the clock.
    mYieldRounds = 0;
    releaseYielders();
}

void Engine::addTimer(Thread& thread) {
    const auto later = [](int64_t deadlineNs, const Thread* other) {
        return deadlineNs < other->wait.deadlineNs;
    };
    mTimers.insert(std::upper_bound(mTimers.begin(), mTimers.end(), thread.wait.deadlineNs, later),
                   &thread);
}

void Engine::releaseYielders() {
    while (!mYielders.empty()) wake(*mYielders.front(), Wake::kSignal);
}

void Engine::wakeSomeWaiter() {
    const auto waits = [](const Thread* thread) {
        return thread->wait.kind == WaitKind::kCondition;
    };
    const auto waiters = static_cast<size_t>(std::count_if(mLive.begin(), mLive.end(), waits));
    if (waiters == 0) return;
    size_t skipped = mStrategy.below(waiters);
    for (Thread* thread : mLive) {
        if (!waits(thread) || skipped-- != 0) continue;
        wake(*thread, Wake::kSpurious);
        return;
    }
}

void Engine::fail(Failure failure, const std::string& what) {
    recordFailure(failure, what);
    switchTo(mCurrent->loan.place(), mCaller);
    abort();  // nobody goes on here
}

void Engine::misuse(const std::string& what) {
    fail(Failure::kMisuse, nameOf(*mCurrent) + " " + what);
}

void Engine::recordFailure(Failure failure, const std::string& what) {
    mOutcome.failure = failure;
    mOutcome.report = describeFailure(*this, mOutcome.failure, what, mSteps);
    if (!mOptions.abortOnFailure) return;
    fputs(mOutcome.report.c_str(), stderr);
    abort();
}

void Engine::runToEnd(Thread& body) {
    removeFrom(mReady, body);
    passTurn(mCaller, body);
    // Whatever comes after the run comes after all of it.
    if (isUnderThreadSanitizer()) __tsan_acquire(this);
}

Outcome Engine::outcome() const {
    Outcome outcome = mOutcome;
    outcome.steps = mSteps;
    outcome.endTimeNs = mNowNs;
    outcome.record = mRecord.value();
    for (const auto& thread : mThreads) outcome.threads.push_back(thread->record);
    return outcome;
}

}  // namespace sim
