#include "bench/BareGame.h"

#include <dlfcn.h>

#include <stdexcept>

#include "platform/Thread.h"

namespace bench {

using android::Mutex;
using android::cindral::enterRealtimeScheduling;
using android::cindral::kBoostHintId;
using android::cindral::PerfHintFn;
using android::cindral::WaitResult;

namespace {

constexpr int kHintMs = 8;
constexpr int kHintType = 1;

// Of the client library that the library under measurement has opened, and keeps.
PerfHintFn findPerfHint() {
    void* const client = dlopen(android::cindral::kClientLibrary, RTLD_NOW);
    void* const hint = client != nullptr ? dlsym(client, "perf_hint") : nullptr;
    if (hint == nullptr) throw std::runtime_error("the stand-in device has no perf_hint");
    dlclose(client);
    return reinterpret_cast<PerfHintFn>(hint);
}

}  // namespace

BareGame::BareGame(int64_t timerNs, int64_t periodNs)
      : mTimerNs(timerNs), mPeriodNs(periodNs), mPerfHint(findPerfHint()) {
    mMonitor = std::thread([this] { monitor(); });
    mBoost = std::thread([this] { boost(); });
    mHeadroom = std::thread([this] { headroom(); });
}

BareGame::~BareGame() {
    mRunning = false;
    wakeMonitor();
    mMonitor.join();
    {
        Mutex::Autolock lock(mBoostLock);
        mBoostCond.signal();
    }
    mBoost.join();
    vsync();
    mHeadroom.join();
}

void BareGame::monitor() {
    enterRealtimeScheduling();
    Mutex::Autolock lock(mStateLock);
    while (mRunning) {
        if (mStateCond.waitFor(mStateLock, mPeriodNs) != WaitResult::kTimedOut) continue;
        Mutex::Autolock boostLock(mBoostLock);
        mBoostCond.signal();
    }
}

void BareGame::boost() {
    enterRealtimeScheduling();
    Mutex::Autolock lock(mBoostLock);
    while (mRunning) {
        mBoostCond.wait(mBoostLock);
        mPerfHint(kBoostHintId, nullptr, kHintMs, kHintType);
    }
}

void BareGame::headroom() {
    enterRealtimeScheduling();
    Mutex::Autolock lock(mVsyncLock);
    while (mRunning) {
        mVsyncCond.wait(mVsyncLock);
        mVsyncCond.waitFor(mVsyncLock, mTimerNs);
        mReleased = true;
        Mutex::Autolock queueLock(mQueueLock);
        mQueueCond.broadcast();
    }
}

void BareGame::vsync() {
    Mutex::Autolock lock(mVsyncLock);
    mVsyncCond.signal();
}

void BareGame::queue() {
    wakeMonitor();
    if (!mReleased) waitForRelease();
    mReleased = false;
    wakeMonitor();
}

void BareGame::wakeMonitor() {
    Mutex::Autolock lock(mStateLock);
    mStateCond.signal();
}

void BareGame::waitForRelease() {
    Mutex::Autolock lock(mQueueLock);
    if (!mReleased) mQueueCond.waitFor(mQueueLock, mPeriodNs);
}

}  // namespace bench
