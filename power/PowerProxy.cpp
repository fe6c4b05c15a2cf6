#include "power/PowerProxy.h"

#include <cstdio>

#include "platform/Log.h"
#include "platform/Trace.h"

namespace android {

using namespace cindral;

namespace {
constexpr char kTag[] = "Cindral.PowerProxy";
constexpr size_t kSavingTextSize = 256;
}  // namespace

PowerProxy::PowerProxy(const sp<PerfProxy>& perfProxy) : mPerfProxy(perfProxy) {}

PowerProxy::~PowerProxy() = default;

void PowerProxy::setRenderTimeThresh(int percent) {
    mRenderTimeThresh = clampedRenderTimeThresh(percent);
    if (mThresh > mRenderTimeThresh) mThresh = mRenderTimeThresh;
}

void PowerProxy::scaleEnergyIfNeed(long renderTime) {
    traceMarker(mDebuggable, "scaleEnergyIfNeed");
    const int64_t vsyncPeriod = mVsyncPeriod;
    const int64_t target = targetRenderTime(vsyncPeriod, mThresh);
    if (!isEarly(renderTime, vsyncPeriod, target)) {
        updateStatusAndRel(false);
        return;
    }
    if (consumeCooldown()) return;
    const int32_t coe = coefficientFor(renderTime, target);
    CINDRAL_LOGD(mDebuggable, kTag, "renderTime(%lld), targetRenderTime(%lld), coe(%d)",
                 static_cast<long long>(renderTime), static_cast<long long>(target), coe);
    // A change, not a value: fast frames push the coefficient down call after call.
    negativeBoostAcq(coe);
    if (!mDebuggable) return;
    char text[kSavingTextSize];
    snprintf(text, sizeof(text), "renderTime = %ld targetRenderTime = %ld", renderTime,
             static_cast<long>(target));
    traceMarker(mDebuggable, text);
}

// Whether this evaluation falls into the cooldown after a missed frame.
bool PowerProxy::consumeCooldown() {
    Mutex::Autolock lock(mLock);
    if (mCooldownCount < 1) return false;
    --mCooldownCount;
    return true;
}

void PowerProxy::negativeBoostAcq(int delta) {
    traceMarker(mDebuggable, "negativeBoostAcq");
    Mutex::Autolock lock(mLock);
    int32_t newCoe = movedCoefficient(mCoe, delta, mNegativeBoostThresh);
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    if (now - mLastRefreshTime > kRefreshIntervalNs) {
        // Keeps the service's hint alive: it sends what is in force, so that the delta of this one call
        // is dropped, and neither the cooldown nor the smallest step holds it back.
        mLastRefreshTime = now;
        newCoe = mCoe;
        apply(newCoe);
    } else if (isCoeChangeWorthSending(mCoe, newCoe) && mCooldownCount == 0) {
        apply(newCoe);
    }
    if (!mDebuggable) return;
    char text[kSavingTextSize];
    snprintf(text, sizeof(text), "newCoe = %d", newCoe);
    traceMarker(mDebuggable, text);
}

void PowerProxy::apply(int32_t newCoe) {
    CINDRAL_LOGD(mDebuggable, kTag, "%s: newCoe(%d), prevCoe(%d)", "negativeBoostAcq", newCoe,
                 mCoe);
    monitorPingpongStatus(false);
    if (mPerfProxy != nullptr) {
        mPerfProxy->perfHint(kBoostHintId, nullptr, kNegativeBoostDurationMs,
                             saturated(-int64_t{newCoe}) | kNegativeBoostFlag);
    }
    mNegativeBoosted = true;
    mCoe = newCoe;
}

void PowerProxy::updateStatusAndRel(bool byPerf) {
    CINDRAL_LOGD(mDebuggable, kTag, "release negative boost by  %s", byPerf ? "perf" : "power");
    Mutex::Autolock lock(mLock);
    if (byPerf) {
        mCooldownCount = kCooldownEvaluations;
        monitorPingpongStatus(true);
    }
    negativeBoostRel();
}

void PowerProxy::negativeBoostRel() {
    traceMarker(mDebuggable, "negativeBoostRel");
    if (!mNegativeBoosted) return;
    if (mPerfProxy != nullptr) mPerfProxy->perfHint(kBoostHintId, nullptr, 0, kNegativeBoostFlag);
    mNegativeBoosted = false;
    mCoe = 0;
}

void PowerProxy::monitorPingpongStatus(bool byPerf) {
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    if (!mStatusHistory.record({now, byPerf}, mVsyncPeriod)) return;
    ++mPingpongCount;
    CINDRAL_LOGD(mDebuggable, kTag, "pingpongCount(%d)", static_cast<int>(mPingpongCount));
}

inline void PowerProxy::moveThreshold(int32_t thresh) {
    const int32_t old = mThresh;
    if (thresh != old) {  // frames that stay early leave it at its ceiling, and the division undone
        mThresh = thresh;
        mCoe = rescaledCoefficient(mCoe, old, thresh);
    }
    CINDRAL_LOGD(mDebuggable, kTag, "prev thresh:%d, curr thresh:%d", old, thresh);
}

void PowerProxy::increaseThreshold() {
    traceMarker(mDebuggable, "increaseThreshold");
    Mutex::Autolock lock(mLock);
    moveThreshold(raisedThresh(mThresh, mRenderTimeThresh));
}

void PowerProxy::reduceThreshold() {
    traceMarker(mDebuggable, "reduceThreshold");
    Mutex::Autolock lock(mLock);
    moveThreshold(droppedThresh(mThresh));
}

}  // namespace android
