#include "bench/BareWaits.h"

#include <time.h>

#include "platform/Thread.h"

namespace bench {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

void initialise(pthread_cond_t& condition) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&condition, &attributes);
    pthread_condattr_destroy(&attributes);
}

class Guard {
  public:
    explicit Guard(pthread_mutex_t& mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~Guard() { pthread_mutex_unlock(&mMutex); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

  private:
    pthread_mutex_t& mMutex;
};

}  // namespace

int64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

BareWaits::BareWaits() {
    for (pthread_cond_t* condition : {&mOrdered, &mNever, &mHandedOver}) initialise(*condition);
    mWaiter = std::thread([this] { runWaiter(); });
    mSuccessor = std::thread([this] { runSuccessor(); });
}

BareWaits::~BareWaits() {
    {
        const Guard guard(mLock);
        mStop = true;
        pthread_cond_signal(&mOrdered);
        pthread_cond_signal(&mHandedOver);
    }
    mWaiter.join();
    mSuccessor.join();
    for (pthread_cond_t* condition : {&mOrdered, &mNever, &mHandedOver})
        pthread_cond_destroy(condition);
}

void BareWaits::wait(int64_t lengthNs, BareLateness& results) {
    const Guard guard(mLock);
    mDeadline = monotonicNow() + lengthNs;
    mResults = &results;
    pthread_cond_signal(&mOrdered);
}

void BareWaits::runWaiter() {
    android::cindral::enterRealtimeScheduling();
    const Guard guard(mLock);
    while (!mStop) {
        if (mDeadline == 0) {
            pthread_cond_wait(&mOrdered, &mLock);
            continue;
        }
        const timespec deadline{mDeadline / kNsPerSecond, mDeadline % kNsPerSecond};
        while (pthread_cond_timedwait(&mNever, &mLock, &deadline) == 0) {
        }
        mResults->wait.push_back(static_cast<double>(monotonicNow() - mDeadline));
        mPassed = mDeadline;
        mDeadline = 0;
        pthread_cond_signal(&mHandedOver);
    }
}

void BareWaits::runSuccessor() {
    android::cindral::enterRealtimeScheduling();
    const Guard guard(mLock);
    while (!mStop) {
        // With a deadline, which it never reaches, as a held producer has.
        const int64_t limit = monotonicNow() + kNsPerSecond;
        const timespec deadline{limit / kNsPerSecond, limit % kNsPerSecond};
        pthread_cond_timedwait(&mHandedOver, &mLock, &deadline);
        if (mPassed == 0) continue;
        mResults->handOver.push_back(static_cast<double>(monotonicNow() - mPassed));
        mPassed = 0;
    }
}

}  // namespace bench
