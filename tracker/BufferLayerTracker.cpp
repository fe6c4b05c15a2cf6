// The object itself: construction, its environment, and its end.

#include "tracker/BufferLayerTracker.h"

#include <sched.h>

#include <new>

#include "platform/Log.h"
#include "platform/Thread.h"
#include "platform/Trace.h"

namespace android {

using namespace cindral;

namespace {

// The level at which every checkpoint is acted on. Power optimisation belongs to this level alone:
// at any other one it stays without effect.
constexpr int kFullBoostLevel = 1;

// Above this display class (Hz), layers that are no games get neither regulator.
constexpr int32_t kMaxDisplayClassForNonGames = 60;
constexpr int kNotAGameWeight = 0;

}  // namespace

BufferLayerTracker::BufferLayerTracker(const std::string& name, bool gfarEnabled, bool phrEnabled,
                                       bool debuggable)
      : mLayerName(name),
        mGfarEnabled(gfarEnabled),
        mPhrEnabled(phrEnabled),
        mDebuggable(debuggable) {}

BufferLayerTracker::~BufferLayerTracker() {
    forceStop();
    if (mGfarEnabled && mInitialized) {
        if (mMonitorThread.joinable()) mMonitorThread.join();
        mPerfProxy.get()->stopBoostThread();
        ZLOGD("~BufferLayerTracker");
    }
    mRegulator.clear();
    mPowerProxy.clear();
    mPerfProxy.clear();
}

// Apart from the path of every buffer, like the other functions of this kind: once in a tracker's life.
[[gnu::noinline, gnu::cold]] void BufferLayerTracker::initEnvironment() {
    auto* perf = new (std::nothrow) PerfProxy();
    mPerfProxy.publish(perf);
    if (perf == nullptr) return;  // the next matching period tries again
    perf->setDebuggable(mDebuggable);
    readBoostProperties();
    createPowerProxy();
    if (applyGameGate()) {
        if (mGfarEnabled) startMonitorThread();
        if (mPhrEnabled) createRegulator();
    }
    mInitialized = true;
}

void BufferLayerTracker::readBoostProperties() {
    PerfProxy* perf = mPerfProxy.get();
    int level = kFullBoostLevel;
    perf->perfGetProp("vendor.perf.pfar2.boost_level", std::to_string(level).c_str())
            .extractTo(level);
    perf->setBoostLevel(level);
    if (level != kFullBoostLevel) return;
    perf->perfGetProp("vendor.perf.pfar2.disable_pl", "1").extractTo(mDisablePl);
    perf->perfGetProp("vendor.perf.pfar2.disable_core_ctl", "1").extractTo(mDisableCoreCtl);
}

// A new period that comes meanwhile finds the object published, or is found here.
template <typename T, typename Tell>
void BufferLayerTracker::publishWithPeriod(PublishedPointer<T>& place, T* object, Tell tell) {
    const nsecs_t told = mVsyncPeriod;
    tell(told);
    place.publish(object);
    ++mPeriodTurns;
    const nsecs_t period = mVsyncPeriod;
    if (period != told) tell(period);
}

void BufferLayerTracker::createPowerProxy() {
    PerfProxy* perf = mPerfProxy.get();
    const bool wanted = perf->perfGetProp("vendor.perf.pfar2.hgpe.enable", "0").isOn();
    if (!wanted || !mGfarEnabled) return;
    auto* power = new (std::nothrow) PowerProxy(mPerfProxy.owned());
    if (power == nullptr) return;
    publishWithPeriod(mPowerProxy, power, [power](long period) { power->setVsyncPeriod(period); });
    power->setDebuggable(mDebuggable);
    const int renderTime = perf->perfGetProp("vendor.perf.pfar2.hgpe.max_rendertime", "0").toInt();
    if (renderTime != 0) power->setRenderTimeThresh(renderTime);
    const int negativeBoost = perf->perfGetProp("vendor.perf.pfar2.hgpe.max_neboost", "0").toInt();
    if (negativeBoost != 0) power->setNegativeBoostThresh(negativeBoost);
    perf->setNegativeBoostProp(true);
}

// Takes both regulators from a layer that is no game, unless the display is slow. Returns whether it
// kept them.
bool BufferLayerTracker::applyGameGate() {
    if (mPerfProxy.get()->getGameWeight(mLayerName) != kNotAGameWeight) return true;
    mIsGame = false;
    if (mVsyncMode <= kMaxDisplayClassForNonGames) return true;
    mGfarEnabled = false;
    mPhrEnabled = false;
    return false;
}

void BufferLayerTracker::startMonitorThread() {
    {
        Mutex::Autolock lock(mStateLock);
        mRunning = true;
    }
    if (!tryStartThread(mMonitorThread, [this] { monitorThreadMain(); })) {
        CINDRAL_LOGE(kTrackerTag, "MonitorThread Creation Failed");
    } else if (mDebuggable) {
        // Only while debugging: otherwise the thread keeps the name it inherited.
        nameThread(mMonitorThread, "BLT");
    }
    // Also without a monitor: nobody asks it for a boost then, and it sleeps.
    mPerfProxy.get()->startBoostThread();
}

void BufferLayerTracker::createRegulator() {
    auto* regulator = new (std::nothrow)
            PresetHeadroomRegulator(mPerfProxy.owned(), mGfarEnabled, mDebuggable);
    if (regulator == nullptr) return;
    publishWithPeriod(mRegulator, regulator, [this, regulator](long period) {
        // The period's own class: the field may still be that of the one before.
        regulator->setVsyncInfo(period, setVsyncMode(period));
    });
}

void BufferLayerTracker::lockForWork() {
    mWorkLock.lock();
}

void BufferLayerTracker::checkForExit() {
    Mutex::Autolock lock(mWorkLock);
}

void BufferLayerTracker::forceStop() {
    if (PresetHeadroomRegulator* regulator = mRegulator.get()) regulator->forceStop();
    {
        Mutex::Autolock lock(mStateLock);
        mRunning = false;
        mCond.signal();
    }
    // An increment under way holds this lock to its end.
    while (mWorkLock.tryLock() != 0) sched_yield();
    mWorkLock.unlock();
}

void BufferLayerTracker::onVsync(long timestamp) {
    if (PresetHeadroomRegulator* regulator = mRegulator.get()) regulator->onVsync(timestamp);
}

PresetHeadroomRegulator* BufferLayerTracker::activeRegulator() const {
    PresetHeadroomRegulator* regulator = mRegulator.get();
    return regulator != nullptr && regulator->isActive() ? regulator : nullptr;
}

void BufferLayerTracker::ZLOGD(const char* text) const {
    CINDRAL_LOGD(mDebuggable, kTrackerTag, "%s", text);
}

void BufferLayerTracker::ZTRACE_NAME(const char* text) const {
    traceMarker(mDebuggable, text);
}

}  // namespace android
