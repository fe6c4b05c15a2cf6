// The monitor thread of BufferLayerTracker: watches the deadline of every frame while the frame
// regulator is on. One pass ends with every wake-up, so that a stop is seen at once.

#include "perf/BoostRules.h"
#include "platform/Thread.h"
#include "tracker/BufferLayerTracker.h"
#include "tracker/FrameRules.h"

namespace android {

using namespace cindral;

namespace {
// How long a layer may stay silent after the last boost before its regulator goes off.
constexpr nsecs_t kCheckpointFinalWaitNs = 1'000'000'000;
}  // namespace

void BufferLayerTracker::monitorThreadMain() {
    enterRealtimeScheduling();
    Mutex::Autolock lock(mStateLock);
    while (mRunning) monitorPass();
}

void BufferLayerTracker::monitorPass() {
    if (!mFrameRegulatorOn) {
        park();
        return;
    }
    if (mCheckpoint != Checkpoint::kQueueProcessed) {
        // No queue was processed since the regulator came on, or one is being processed.
        mCond.waitFor(mStateLock, mVsyncPeriod);
        return;
    }
    const nsecs_t watchedQueue = mLastQueueTime;
    if (staysLateFor(mVsyncPeriod, watchedQueue)) {
        onLateFrame(watchedQueue);
    } else {
        onFastFrame();
    }
}

// The regulator is off: undoes what it did and sleeps until it comes on, or until the stop.
void BufferLayerTracker::park() {
    mPingpongCount = 0;
    updatePlAndCoreCtlStatus(false);
    if (PresetHeadroomRegulator* regulator = mRegulator.get()) regulator->setActiveStatus(false);
    mCond.wait(mStateLock);
}

void BufferLayerTracker::onFastFrame() {
    if (PowerProxy* power = mPowerProxy.get()) power->scaleEnergyIfNeed(mRenderTime);
    ZTRACE_NAME("fast frame");
}

void BufferLayerTracker::onLateFrame(nsecs_t watchedQueue) {
    if (PowerProxy* power = mPowerProxy.get()) power->updateStatusAndRel(true);
    if (mAccumulatedCount >= 1 && !waitForAccumulatedBuffer()) return;

    raiseCheckpoint(kCheckpoint1, "CHECKPOINT1_NOT_QUEUED");
    if (!staysLateFor(checkpointSpacing(mVsyncPeriod, mVsyncMode), watchedQueue)) return;
    raiseCheckpoint(kCheckpoint2, "CHECKPOINT2_NOT_QUEUED");
    if (!staysLateFor(checkpointSpacing(mVsyncPeriod, mVsyncMode), watchedQueue)) return;
    raiseCheckpoint(kCheckpoint3, "CHECKPOINT3_NOT_QUEUED");
    // Here only a wake-up keeps the regulator on: a buffer that is being queued just as the time runs
    // out does not.
    if (waitRunsOut(kCheckpointFinalWaitNs)) giveUp();
}

// The consumer still has buffers to show, so the layer gets another period. Returns whether it
// passed without a wake-up.
bool BufferLayerTracker::waitForAccumulatedBuffer() {
    ZTRACE_NAME("additonal wait for accumulated buffer");
    return waitRunsOut(mVsyncPeriod);
}

// Waits, and tells whether the time ran out with no buffer queued since the watched one.
bool BufferLayerTracker::staysLateFor(nsecs_t duration, nsecs_t watchedQueue) {
    return waitRunsOut(duration) && mLastQueueTime == watchedQueue;
}

// Waits, and tells whether nobody woke the thread. A stop counts as a wake-up also when it came in the
// moment in which the time ran out, so that its signal found nobody: whoever stops the tracker would
// wait for all that is left of the pass, more than a second, with the module's lock held.
bool BufferLayerTracker::waitRunsOut(nsecs_t duration) {
    return mCond.waitFor(mStateLock, duration) == WaitResult::kTimedOut && mRunning;
}

void BufferLayerTracker::raiseCheckpoint(int checkpoint, const char* text) {
    mPerfProxy.get()->boostHint(checkpoint);
    ZTRACE_NAME(text);
}

// The next pass parks.
void BufferLayerTracker::giveUp() {
    mFrameRegulatorOn = false;
    mFpsMode = kNoFrameRateClass;
    ZLOGD("disable FrameRegulator");
}

}  // namespace android
