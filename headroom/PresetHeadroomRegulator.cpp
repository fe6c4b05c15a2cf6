#include "headroom/PresetHeadroomRegulator.h"

#include <string>

#include "headroom/HeadroomRules.h"
#include "platform/Log.h"
#include "platform/Thread.h"
#include "platform/Trace.h"

namespace android {

using namespace cindral;

namespace {
constexpr char kMinRateProperty[] = "vendor.perf.phr.hr_min_rate";
}  // namespace

PresetHeadroomRegulator::PresetHeadroomRegulator(sp<PerfProxy>& perfProxy, bool gfarEnabled,
                                                 bool debuggable)
      : mGfarEnabled(gfarEnabled), mDebuggable(debuggable), mPerfProxy(perfProxy) {
    // The thread may start before the rate is read: it touches nothing before its first vsync.
    if (!tryStartThread(mThread, [this] { threadMain(); })) {
        CINDRAL_LOGE(kHeadroomTag, "HeadroomThread Creation Failed");
    } else if (mDebuggable) {
        nameThread(mThread, "PHR");
    }
    readMinRate();
}

PresetHeadroomRegulator::~PresetHeadroomRegulator() {
    if (mThread.joinable()) mThread.join();
    CINDRAL_LOGD(mDebuggable, kHeadroomTag, "~PresetHeadroomRegulator");
}

void PresetHeadroomRegulator::readMinRate() {
    const PropertyValue value =
            mPerfProxy->perfGetProp(kMinRateProperty, std::to_string(kDefaultMinRate).c_str());
    float minRate = mMinRate;
    value.extractTo(minRate);
    mMinRate = minRate;
}

void PresetHeadroomRegulator::setVsyncInfo(long vsyncPeriod, int refreshRate) {
    if (vsyncPeriod == mVsyncPeriod) return;
    mVsyncPeriod = vsyncPeriod;
    mRefreshRate = refreshRate;
    // For the rest of the object's life: a later change back to 60 Hz keeps it.
    if (needsFullHeadroom(refreshRate, mGfarEnabled)) mMinRate = kMaxMinRate;
    const HeadroomBounds bounds = headroomBounds(vsyncPeriod, refreshRate, mMinRate);
    mMinHeadroom = bounds.min;
    mMaxHeadroom = bounds.max;
    mHeadroom = bounds.min;
    CINDRAL_LOGD(mDebuggable, kHeadroomTag, "vsync: %ld, init headroom: %ld\n", vsyncPeriod,
                 static_cast<long>(bounds.min));
}

void PresetHeadroomRegulator::threadMain() {
    enterRealtimeScheduling();
    Mutex::Autolock vsyncLock(mVsyncLock);
    while (mRunning) {
        // No predicate: any wake-up starts a cycle.
        mVsyncCond.wait(mVsyncLock);
        if (mRunning) runCycle();
    }
    Mutex::Autolock queueLock(mQueueLock);
    if (mQueueWaiting) mQueueCond.broadcast();
}

void PresetHeadroomRegulator::runCycle() {
    traceBegin(mDebuggable, "wait for preset headroom");
    // The next vsync or a stop ends the timer early. That counts as a release, and the vsync starts
    // no cycle of its own.
    mVsyncCond.waitFor(mVsyncLock, mVsyncPeriod - mHeadroom);
    if (mWaitTimedOut) {
        // A queueing thread gave up waiting for this release, so it has been used.
        mWaitTimedOut = false;
    } else {
        mTimerExpired = true;
    }
    Mutex::Autolock lock(mQueueLock);
    if (mQueueWaiting) {
        mQueueCond.broadcast();
        mQueueWaiting = false;
    }
    traceEnd(mDebuggable);
}

void PresetHeadroomRegulator::onVsync(long timestamp) {
    if (!mActive) return;
    traceMarker(mDebuggable, "onVsync");
    mLastVsyncTime = timestamp;
    mAccumulationReported = false;
    Mutex::Autolock lock(mVsyncLock);
    mVsyncCond.signal();
}

void PresetHeadroomRegulator::setActiveStatus(bool enable) {
    if (enable == mActive) return;
    mActive = enable;
    const char* text = enable ? "enable PHR" : "disable PHR";
    TraceSection section(mDebuggable, text);
    CINDRAL_LOGD(mDebuggable, kHeadroomTag, "%s", text);
}

void PresetHeadroomRegulator::forceStop() {
    mActive = false;
    mAccumulated = false;
    Mutex::Autolock lock(mVsyncLock);
    mRunning = false;
    mVsyncCond.signal();
}

}  // namespace android
