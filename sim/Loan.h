#pragma once

#include <sys/types.h>

#include <cstdint>

namespace sim {

// Where the work on a stack stopped. Everything else that work needs is on the stack itself.
struct Place {
    void* stackPointer = nullptr;
    void* threadPointer = nullptr;  // to the thread's own data in the C library and the sanitizers
};

// Goes on at `next`, on its stack and as its thread, and returns once somebody goes on at `here`.
void switchTo(Place& here, const Place& next);

// Every simulated thread is a real one, but only one real thread of them all runs: the caller of
// sim::run(), the runner. The others lend it their stacks and thread pointers and sleep. To run
// another simulated thread the runner changes its registers; the kernel takes no part. Since a
// function always goes on with the thread pointer it began with, everything the C library, the
// language and the sanitizers keep for a thread - errno, thread_local objects, exceptions under way,
// the bounds of its stack - is where it belongs. What the kernel keeps is not: the runner's number
// is that of another thread, so gettid and names are answered by the simulation.
//
// A loan ends with the simulated thread: the real one wakes at the place where the runner left it,
// and ends as any thread does.
class Loan {
  public:
    // By the real thread: lends itself. Returns twice over, as it were: to the runner, which goes on
    // here as this thread, and, once what the runner did has come to its end, out of the last
    // switchTo() from here, in the real thread. Signals go to other threads from now on.
    void give();

    // The rest is for the runner. Waits until the thread sleeps, and its place is good.
    void awaitGiven();
    // After the last switch away. The thread takes up its stack where it was left.
    void giveBack();

    Place& place() { return mPlace; }

  private:
    static constexpr int kSideStackBytes = 2048;  // for one function that calls the kernel

    static void sleepUntilGivenBack(void* loan);

    alignas(16) unsigned char mSideStack[kSideStackBytes];
    Place mPlace;
    uint32_t mState = 0;  // one of those in Loan.cpp, shared with the real thread; a futex
};

// Whether the kernel still knows the thread.
bool isAlive(pid_t tid);

}  // namespace sim
