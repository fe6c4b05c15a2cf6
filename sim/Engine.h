#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/Digest.h"
#include "sim/Simulation.h"
#include "sim/Strategy.h"
#include "sim/Thread.h"

namespace sim {

// Who runs, and what time it is. Knows threads, waits and deadlines, but not what they wait for:
// mutexes and conditions are in Primitives, the life of threads is in Threads, and Interpose.cpp
// leads the C library's calls there. A Run is one of each.
//
// Exactly one simulated thread has the turn. It passes it on without a system call, by going on at
// another's place (Loan.h). Only the thread with the turn calls the engine, so nothing in it is
// locked.
//
// The road of an intercepted call:
//   step()      counts, records, charges the cost, and lets a random schedule take the turn away, move the
//               clock or wake a waiter - always before the call has any effect;
//   block()     if it cannot go on: stands in a queue, with a deadline or without, until wake();
//   progress()  when it had an effect, for those who spin.
// So a call's effect and the program's code up to the next call are never torn apart.
//
// A spinning thread (sched_yield) is out of the race until another made progress or the clock
// moved; else its spinning would keep the clock from ever moving. What it wrote to memory between
// two yields cannot be seen from here, so if only spinners are left they get a few more rounds
// before the clock moves, and many before it is called a deadlock.
//
// After fail() the thread never returns; the caller of run() does. The real threads sleep for ever,
// so the engine of a failed run is never deleted.
class Engine {
  public:
    explicit Engine(const Options& options);

    int64_t now() const { return mNowNs; }
    Thread& current() const { return *mCurrent; }  // has the turn
    const Options& options() const { return mOptions; }
    const Strategy& strategy() const { return mStrategy; }
    void setCalm(bool calm) { mStrategy.setCalm(calm); }
    // In the order of their ids, the ended ones too.
    const std::vector<std::unique_ptr<Thread>>& threads() const { return mThreads; }

    void step(Call call);
    // The second half of step(): for calls that can be interrupted in their middle as well.
    void perturb();
    void progress();
    // How many stores a load of the cell goes back, of so many that it may return.
    size_t chooseAge(size_t ages, size_t cell) {
        return mStrategy.chooseAge(ages, *mCurrent, cell);
    }
    Wake block(const Wait& wait);
    void wake(Thread& thread, Wake how);
    void yield();

    // The thread exists for real and lends itself; from now on it takes turns.
    Thread& admit(std::unique_ptr<Thread> thread);
    // A thread's first and last acts. After end() it has no turn any more.
    void begin();
    void end();

    [[noreturn]] void fail(Failure failure, const std::string& what);
    [[noreturn]] void misuse(const std::string& what);

    // For the caller of the run: goes on as the body, and returns when all threads have ended or
    // one failed.
    void runToEnd(Thread& body);
    // Puts a failure into the outcome. Prints it and ends the program if so wanted.
    void recordFailure(Failure failure, const std::string& what);
    Outcome outcome() const;

  private:
    Thread& next();
    void giveTurn(Place& here, Thread& thread);
    void passTurn(Place& here, Thread& thread);  // and get it back some time
    void awaitEndedThread();
    void note(int what, const Thread& thread);
    void setClock(int64_t timeNs);
    void moveClockToDeadline();
    void addTimer(Thread& thread);
    void releaseYielders();
    void wakeSomeWaiter();
    bool grantYieldersAnotherRound();
    std::string describeDeadlock() const;

    const Options mOptions;
    const int64_t mLatestNs;  // the time budget as a time
    Strategy mStrategy;
    int64_t mNowNs;
    uint64_t mSteps = 0;
    Digest mRecord;        // of every step and every change of state, but no number of an object
    int mYieldRounds = 0;  // in a row, without progress and at one time

    std::vector<std::unique_ptr<Thread>> mThreads;
    std::vector<Thread*> mLive;
    std::vector<Thread*> mReady;   // without the current one; the longest waiting one first
    std::vector<Thread*> mTimers;  // by deadline, then by the order of waiting
    WaitQueue mYielders;
    Thread* mCurrent = nullptr;
    Thread* mEnded = nullptr;  // gave up its turn for good, may still be on its way out

    Outcome mOutcome;
    Place mCaller;  // of the run
};

}  // namespace sim
