// The queue side of PresetHeadroomRegulator: holding a buffer, and moving the headroom.
//
// A release sets mTimerExpired and the next queued buffer consumes it. A wait that runs out by
// itself sets mWaitTimedOut instead, and the next release is spent on clearing it.

#include <cstdio>

#include "headroom/HeadroomRules.h"
#include "headroom/PresetHeadroomRegulator.h"
#include "platform/Log.h"
#include "platform/Trace.h"

namespace android {

using namespace cindral;

namespace {

// The check for the consumed-buffer report of this cycle: passes of this length, and how many of
// them.
constexpr nsecs_t kReportPassNs = 1'000'000;
constexpr int32_t kReportPasses = 2;

constexpr size_t kTraceTextSize = 256;

}  // namespace

void PresetHeadroomRegulator::trackQueueBuffer() {
    if (!mActive) return;
    TraceSection section(mDebuggable, "trackQueueBuffer");
    if (mTimerExpired) {
        traceMarker(mDebuggable, "timer expired");
    } else {
        waitForRelease();
    }
    if (mAccumulated) {
        waitForAccumulationReport();
        if (mAccumulationReported && mAccumulated) delayForAccumulation();
    }
    mTimerExpired = false;
}

// Like the other waits, apart from the path of a buffer that finds its release there.
[[gnu::noinline]] void PresetHeadroomRegulator::waitForRelease() {
    {
        Mutex::Autolock lock(mQueueLock);
        const bool released = mTimerExpired;
        mQueueWaiting = true;  // also when no wait follows
        if (!released && waitInQueue(mVsyncPeriod) == WaitResult::kTimedOut) mWaitTimedOut = true;
    }
    traceMarker(mDebuggable, "delay finish");
}

// Gives the compositor's report on this cycle time to arrive. A release that comes meanwhile ends a
// pass early, and the pass still counts.
[[gnu::noinline]] void PresetHeadroomRegulator::waitForAccumulationReport() {
    int32_t passes = 0;
    while (!mAccumulationReported) {
        Mutex::Autolock lock(mQueueLock);
        ++passes;
        waitInQueue(kReportPassNs);
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        if (now > mLastVsyncTime && passes >= kReportPasses) break;
    }
}

[[gnu::noinline]] void PresetHeadroomRegulator::delayForAccumulation() {
    {
        TraceSection section(mDebuggable, "accumulation delay");
        CINDRAL_LOGW(mDebuggable, kHeadroomTag, "%s", "accumulation delay");
    }
    Mutex::Autolock lock(mQueueLock);
    // Running out here does not set mWaitTimedOut: the cycle's release was used before.
    waitInQueue(mVsyncPeriod);
}

WaitResult PresetHeadroomRegulator::waitInQueue(nsecs_t duration) {
    mQueueWaiting = true;
    return mQueueCond.waitFor(mQueueLock, duration);
}

void PresetHeadroomRegulator::increasePresetHeadroom() {
    const nsecs_t headroom = mHeadroom;
    const nsecs_t raised = raisedHeadroom(headroom, mMaxHeadroom);
    if (raised != headroom) storeHeadroom(raised);
}

void PresetHeadroomRegulator::reducePresetHeadroom() {
    const nsecs_t headroom = mHeadroom;
    const nsecs_t lowered = loweredHeadroom(headroom, mMinHeadroom);
    if (lowered != headroom) storeHeadroom(lowered);
}

void PresetHeadroomRegulator::storeHeadroom(nsecs_t headroom) {
    mHeadroom = headroom;
    if (!mDebuggable) return;
    char text[kTraceTextSize];
    snprintf(text, sizeof(text), "headroom = %ld", static_cast<long>(headroom));
    traceMarker(mDebuggable, text);
}

void PresetHeadroomRegulator::updateAccumulationStatus(bool accumulated) {
    mAccumulated = accumulated;
    mAccumulationReported = true;
}

}  // namespace android
