// Power optimisation of BufferLayerTracker: PL and core control off while that costs no frames.

#include "tracker/BufferLayerTracker.h"

namespace android {

using namespace cindral;

namespace {

// The monitor thread may reset the same fields at any time; only what a step changed is written
// back.
template <typename Field, typename T>
void storeIfChanged(Field& field, T before, T after) {
    if (before != after) field = after;
}

}  // namespace

void BufferLayerTracker::evaluatePowerOpt() {
    const bool precondition = meetsPowerOptPrecondition(mAccumulatedCount, mFps, mFpsMode,
                                                        activeRegulator() != nullptr);
    PowerOptState before;
    before.on = mPowerOptOn;
    before.pingpongCount = mPingpongCount;
    before.preconditionMissCount = mPreconditionMissCount;
    before.onSamples = mOptOnSamples;
    before.offSamples = mOptOffSamples;
    before.onFpsSum = mOptOnFpsSum;
    before.offFpsSum = mOptOffFpsSum;
    const PowerOptStep step = stepPowerOpt(before, precondition, mFps);
    storeIfChanged(mPingpongCount, before.pingpongCount, step.next.pingpongCount);
    storeIfChanged(mPreconditionMissCount, before.preconditionMissCount,
                   step.next.preconditionMissCount);
    storeIfChanged(mOptOnSamples, before.onSamples, step.next.onSamples);
    storeIfChanged(mOptOffSamples, before.offSamples, step.next.offSamples);
    storeIfChanged(mOptOnFpsSum, before.onFpsSum, step.next.onFpsSum);
    storeIfChanged(mOptOffFpsSum, before.offFpsSum, step.next.offFpsSum);
    if (step.log != nullptr) ZLOGD(step.log);
    if (step.change != PowerOptSwitch::kKeep) {
        updatePlAndCoreCtlStatus(step.change == PowerOptSwitch::kEnable);
    }
}

// Switching off forgets the samples, also when it was off already; switching on keeps them, as the
// verification compares with them.
void BufferLayerTracker::updatePlAndCoreCtlStatus(bool on) {
    if (mPowerOptOn != on) {
        mPowerOptOn = on;
        PerfProxy* perf = mPerfProxy.get();
        if (mDisablePl) perf->disablePl(on);
        if (mIsGame && mDisableCoreCtl) perf->disableCoreCtl(on);
    }
    if (on) return;
    mOptOnSamples = 0;
    mOptOffSamples = 0;
    mOptOnFpsSum = 0;
    mOptOffFpsSum = 0;
}

}  // namespace android
