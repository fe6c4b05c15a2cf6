// The measuring half of BufferLayerTracker: what queued and consumed buffers say about the layer.

#include "platform/Log.h"
#include "tracker/BufferLayerTracker.h"
#include "tracker/FrameRules.h"

namespace android {

using namespace cindral;

namespace {

// A pause this long between buffers is no frame time, and ends the measuring period.
constexpr nsecs_t kMeasurementResetNs = 150'000'000;
// A measuring period closes with the first frame that comes after more than a second.
constexpr nsecs_t kMeasuringPeriodNs = 1'000'000'001;

// Consumed buffers in a row that left others queued: the producer runs ahead of the display.
constexpr int32_t kAccumulationForHeadroom = 31;

// Headroom is given up at the sixth stutter within this time.
constexpr nsecs_t kStutterWindowNs = 14'999'999'999;
constexpr size_t kMaxStutters = 5;

}  // namespace

int BufferLayerTracker::setVsyncMode(long period) const {
    return displayClassOf(period);
}

int BufferLayerTracker::setFpsMode(float fps) const {
    return frameRateClassOf(fps);
}

void BufferLayerTracker::changeVsyncPeriod(long period) {
    const int32_t displayClass = setVsyncMode(period);
    mVsyncMode = displayClass;
    if (displayClass == kUnexpectedDisplayClass) {
        // The period is not stored, so that the same one is logged again for as long as it is told.
        // The text takes no argument.
        CINDRAL_LOGE(kTrackerTag, "unexpected vsync recevied: ld\n");
        return;
    }
    mVsyncPeriod = period;
    ++mPeriodTurns;
    if (PresetHeadroomRegulator* regulator = mRegulator.get()) {
        regulator->setVsyncInfo(period, displayClass);
    }
    if (PowerProxy* power = mPowerProxy.get()) power->setVsyncPeriod(period);
}

void BufferLayerTracker::onBufferIncrement() {
    processIncrement();
    mLastWorkEnd = systemTime(SYSTEM_TIME_MONOTONIC);
    mWorkLock.unlock();
}

void BufferLayerTracker::processIncrement() noexcept {
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    mLastQueueTime = now;
    mRenderTime = now - mLastWorkEnd;
    if (mFrameRegulatorOn) {
        trackBoost();
        reach(Checkpoint::kQueueStarted);
    }
    fpsTracker();
    pace();
    // Read again: measuring may have switched it.
    if (mFrameRegulatorOn) reach(Checkpoint::kQueueProcessed);
}

void BufferLayerTracker::trackBoost() {
    PerfProxy* perf = mPerfProxy.get();
    if (perf->isBoosted()) perf->tryBoostRelease();
    const int32_t hints = perf->getBoostHintCounter();
    if (hints == mLastBoostHintCounter) return;
    // At most one step for every new hint.
    mLastBoostHintCounter = hints;
    if (const auto up = expectationStep(mRenderTime, mVsyncPeriod))
        perf->adjustBoostExpectation(*up);
}

void BufferLayerTracker::pace() {
    PresetHeadroomRegulator* regulator = activeRegulator();
    if (regulator == nullptr) return;
    PowerProxy* power = mPowerProxy.get();
    // Late frames move the threshold first, early ones the headroom.
    switch (punctualityOf(mRenderTime, mVsyncPeriod)) {
        case FramePunctuality::kLate:
            if (power != nullptr) power->reduceThreshold();
            regulator->increasePresetHeadroom();
            break;
        case FramePunctuality::kEarly:
            regulator->reducePresetHeadroom();
            if (power != nullptr) power->increaseThreshold();
            break;
        case FramePunctuality::kOnTime:
            break;
    }
    regulator->trackQueueBuffer();
}

void BufferLayerTracker::reach(Checkpoint checkpoint) {
    Mutex::Autolock lock(mStateLock);
    mCheckpoint = checkpoint;
    mCond.signal();
}

void BufferLayerTracker::fpsTracker() {
    const nsecs_t queueTime = mLastQueueTime;
    if (mPrevQueueTime != 0) {
        const nsecs_t interval = queueTime - mPrevQueueTime;
        if (interval >= kMeasurementResetNs) {
            resetMeasurement();
        } else if (countFrame(queueTime, interval)) {
            closeMeasurement();
            if (mFpsMode != mVsyncMode) {
                onDifferentRate();
            } else if (!onMatchingRate()) {
                return;  // without the environment the next interval begins where this one did
            }
        }
    }
    mPrevQueueTime = queueTime;
}

void BufferLayerTracker::resetMeasurement() {
    mFpsSampling = false;
    mFrameCount = 0;
    mIntervalSum = 0;
    mFps = 0;
    mFpsMode = kNoFrameRateClass;
}

// Counts a frame into the measuring period, which it may open. Returns whether the period is over.
bool BufferLayerTracker::countFrame(nsecs_t queueTime, nsecs_t interval) {
    if (!mFpsSampling) {
        if (interval < 1 || mFrameCount != 0) return false;
        mSampleStart = queueTime;
        mFpsSampling = true;
    }
    ++mFrameCount;
    mIntervalSum += static_cast<float>(interval);
    return queueTime - mSampleStart >= kMeasuringPeriodNs;
}

// The following, once a second at most, stay apart from the path of every buffer.
[[gnu::noinline]] void BufferLayerTracker::closeMeasurement() {
    mFps = frameRateOf(mIntervalSum, mFrameCount);
    mFpsMode = setFpsMode(mFps);
    mFpsSampling = false;
    mFrameCount = 0;
    mIntervalSum = 0;
    CINDRAL_LOGD(mDebuggable, kTrackerTag, "FPS:%.2F[%s]", static_cast<double>(mFps),
                 mLayerName.c_str());
}

// The layer renders at the display's rate. Returns false when the environment could not be built.
[[gnu::noinline]] bool BufferLayerTracker::onMatchingRate() {
    if (!mInitialized) initEnvironment();
    if (!mInitialized) return false;
    if (!mGfarEnabled) return true;
    if (!mFrameRegulatorOn) switchFrameRegulator(true, "enable FrameRegulator");
    evaluatePowerOpt();
    return true;
}

[[gnu::noinline]] void BufferLayerTracker::onDifferentRate() {
    if (!mInitialized) return;
    if (mGfarEnabled) {
        updatePlAndCoreCtlStatus(false);
        if (mFrameRegulatorOn) switchFrameRegulator(false, "disable FrameRegulator");
    }
    if (PresetHeadroomRegulator* regulator = mRegulator.get()) regulator->setActiveStatus(false);
}

void BufferLayerTracker::switchFrameRegulator(bool on, const char* log) {
    Mutex::Autolock lock(mStateLock);
    mFrameRegulatorOn = on;
    mCond.signal();
    ZLOGD(log);
}

void BufferLayerTracker::onBufferDecrement(int pending) {
    mAccumulatedCount = pending >= 1 ? mAccumulatedCount + 1 : 0;
    PresetHeadroomRegulator* regulator = mRegulator.get();
    if (regulator != nullptr) {
        if (mFpsMode == mVsyncMode && mAccumulatedCount >= kAccumulationForHeadroom) {
            regulator->setActiveStatus(true);
        }
        if (regulator->isActive()) regulator->updateAccumulationStatus(pending > 0);
    }
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    const nsecs_t gap = now - mLastDecrementTime;
    mLastDecrementTime = now;
    if (isStutter(gap, mVsyncPeriod)) recordStutter(now);
}

void BufferLayerTracker::recordStutter(nsecs_t now) {
    PerfProxy* perf = mPerfProxy.get();
    if (perf != nullptr && mFrameRegulatorOn && perf->getBoostExpectationDegree() < 0) {
        perf->setBoostExpectationDegree(0);
    }
    if (mStutterTimes.size() >= kMaxStutters) {
        if (now - mStutterTimes.front() <= kStutterWindowNs) {
            // Too many in too short a time. This one is not recorded.
            mStutterTimes.clear();
            if (PresetHeadroomRegulator* regulator = mRegulator.get())
                regulator->setActiveStatus(false);
            return;
        }
        mStutterTimes.pop_front();
    }
    mStutterTimes.push_back(now);
}

}  // namespace android
