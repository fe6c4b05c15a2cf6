#pragma once

// What a wait costs by itself: a thread in pthread_cond_timedwait on a condition that nobody
// signals, and a second one that it wakes then, as the library's threads wake each other.

#include <pthread.h>

#include <cstdint>
#include <thread>
#include <vector>

namespace bench {

struct BareLateness {
    std::vector<double> wait;      // ns: the thread that waited is back
    std::vector<double> handOver;  // ns: and so is the one that it woke
};

class BareWaits {
  public:
    BareWaits();
    ~BareWaits();
    BareWaits(const BareWaits&) = delete;
    BareWaits& operator=(const BareWaits&) = delete;

    // One more wait, of this length from now on. Must be over before the next one begins.
    void wait(int64_t lengthNs, BareLateness& results);

  private:
    void runWaiter();
    void runSuccessor();

    pthread_mutex_t mLock = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t mOrdered;  // a wait is asked for
    pthread_cond_t mNever;    // what the wait is on
    pthread_cond_t mHandedOver;
    bool mStop = false;
    int64_t mDeadline = 0;  // of the wait that is asked for, 0: none
    int64_t mPassed = 0;    // the deadline that is handed over, 0: none
    BareLateness* mResults = nullptr;
    std::thread mWaiter;
    std::thread mSuccessor;
};

int64_t monotonicNow();

}  // namespace bench
