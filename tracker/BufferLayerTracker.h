#pragma once

#include <utils/LightRefBase.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <cstdint>
#include <deque>
#include <string>
#include <thread>

#include "headroom/PresetHeadroomRegulator.h"
#include "perf/PerfProxy.h"
#include "platform/MonotonicCondition.h"
#include "platform/PublishedPointer.h"
#include "platform/UnlockedField.h"
#include "power/PowerProxy.h"
#include "tracker/PowerOptimizationRules.h"

namespace android {

// Measures one game layer and drives everything the library does for it.
//
// Until the layer's measured frame rate matches the display's for the first time, a tracker only
// measures. Then it builds its environment: the service client with its boost thread, the power
// controller, the headroom regulator with its thread, and the monitor thread ("BLT") that raises
// boosts at missed deadlines.
//
// Threads: increments come from whichever compositor thread queued the buffer, one at a time under
// mWorkLock; decrements, vsyncs and vsync periods come under the module's layer lock and may
// overlap an increment; the monitor thread holds mStateLock except while it waits.
// Blocking: an increment may be held by the regulator for about two vsync periods. It makes service
// calls when it builds the environment and when power optimisation switches, and waits for
// mStateLock, mBoostLock and the power controller's lock, which the monitor and the boost thread
// keep through service calls. The others wait for locks only.
// Units: nanoseconds of CLOCK_MONOTONIC; frame rates in Hz.
// Lifetime: held by the registry. The destructor stops and joins every thread of the tracker.
// Failure: what cannot be built stays away, and everything that would use it is skipped.
//
// Lock order: mWorkLock, then mStateLock, then the locks of PerfProxy or PowerProxy.
class BufferLayerTracker : public LightRefBase<BufferLayerTracker> {
  public:
    BufferLayerTracker(const std::string& name, bool gfarEnabled, bool phrEnabled, bool debuggable);
    ~BufferLayerTracker();
    BufferLayerTracker(const BufferLayerTracker&) = delete;
    BufferLayerTracker& operator=(const BufferLayerTracker&) = delete;

    const std::string& name() const { return mLayerName; }
    nsecs_t lastQueueTime() const { return mLastQueueTime; }  // 0 before the first increment
    // The tracker's own client; null while there is no environment.
    sp<PerfProxy> serviceClient() const { return mPerfProxy.get(); }

    // The display's vsync period (ns). One outside every display class is logged and not stored.
    void setVsyncPeriod(long period) {
        if (period != mVsyncPeriod) changeVsyncPeriod(period);
    }

    // The layer queued a buffer. lockForWork comes first, under the module's layer lock, and keeps
    // the tracker from being retired until onBufferIncrement has released mWorkLock, its very last
    // act.
    void lockForWork() ACQUIRE(mWorkLock);
    void onBufferIncrement() RELEASE(mWorkLock);
    // A buffer was consumed and left `pending` others in the layer's queue. May throw
    // std::bad_alloc.
    void onBufferDecrement(int pending);
    void onVsync(long timestamp);

    // Returns once no increment is in progress. Called before the registry drops the tracker.
    void checkForExit() EXCLUDES(mWorkLock);

  private:
    // Progress of the latest queued buffer, for the monitor thread. Never goes back to kNone.
    enum class Checkpoint : int32_t { kNone = 0, kQueueStarted = 1, kQueueProcessed = 2 };

    void ZLOGD(const char* text) const;
    void ZTRACE_NAME(const char* text) const;

    // --- environment ---
    void initEnvironment() REQUIRES(mWorkLock);
    void readBoostProperties() REQUIRES(mWorkLock);
    void createPowerProxy() REQUIRES(mWorkLock);
    bool applyGameGate() REQUIRES(mWorkLock);
    void startMonitorThread() REQUIRES(mWorkLock);
    void createRegulator() REQUIRES(mWorkLock);
    template <typename T, typename Tell>
    void publishWithPeriod(cindral::PublishedPointer<T>& place, T* object, Tell tell);
    void forceStop() EXCLUDES(mStateLock, mWorkLock);

    // --- measuring ---
    // The display class of a period (ns); 0 when it is none.
    int setVsyncMode(long period) const;
    // The frame-rate class of a rate; -1 when it is none.
    int setFpsMode(float fps) const;
    void changeVsyncPeriod(long period);
    void processIncrement() noexcept REQUIRES(mWorkLock);
    void trackBoost() REQUIRES(mWorkLock);
    void pace() REQUIRES(mWorkLock);
    void reach(Checkpoint checkpoint) EXCLUDES(mStateLock);
    void fpsTracker() REQUIRES(mWorkLock);
    void resetMeasurement() REQUIRES(mWorkLock);
    bool countFrame(nsecs_t queueTime, nsecs_t interval) REQUIRES(mWorkLock);
    void closeMeasurement() REQUIRES(mWorkLock);
    bool onMatchingRate() REQUIRES(mWorkLock);
    void onDifferentRate() REQUIRES(mWorkLock);
    void switchFrameRegulator(bool on, const char* log) EXCLUDES(mStateLock);
    void recordStutter(nsecs_t now);

    // --- monitor thread ---
    void monitorThreadMain() EXCLUDES(mStateLock);
    void monitorPass() REQUIRES(mStateLock);
    void park() REQUIRES(mStateLock);
    void onFastFrame() REQUIRES(mStateLock);
    void onLateFrame(nsecs_t watchedQueue) REQUIRES(mStateLock);
    bool waitForAccumulatedBuffer() REQUIRES(mStateLock);
    bool staysLateFor(nsecs_t duration, nsecs_t watchedQueue) REQUIRES(mStateLock);
    bool waitRunsOut(nsecs_t duration) REQUIRES(mStateLock);
    void raiseCheckpoint(int checkpoint, const char* text) REQUIRES(mStateLock);
    void giveUp() REQUIRES(mStateLock);

    // --- power optimisation ---
    void evaluatePowerOpt() REQUIRES(mWorkLock);
    void updatePlAndCoreCtlStatus(bool on);

    PresetHeadroomRegulator* activeRegulator() const;

    // "Unlocked": shared by the threads above without a lock, by design. "Set-up": written under
    // mWorkLock by initEnvironment before the monitor thread exists, read-only afterwards.
    const std::string mLayerName;
    bool mInitialized GUARDED_BY(mWorkLock) = false;
    bool mGfarEnabled GUARDED_BY(mWorkLock);
    bool mPhrEnabled GUARDED_BY(mWorkLock);
    const bool mDebuggable;
    bool mFpsSampling GUARDED_BY(mWorkLock) = false;
    bool mRunning GUARDED_BY(mStateLock) = false;
    cindral::UnlockedField<bool> mFrameRegulatorOn{false};  // written under mStateLock
    bool mIsGame = true;                                    // set-up
    bool mDisablePl = false;                                // set-up
    bool mDisableCoreCtl = false;                           // set-up
    cindral::UnlockedField<bool> mPowerOptOn{false};
    cindral::UnlockedField<int32_t> mFpsMode{-1};
    cindral::UnlockedField<int32_t> mVsyncMode{-1};
    int32_t mFrameCount GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<int32_t> mAccumulatedCount{0};
    int32_t mLastBoostHintCounter GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<int32_t> mPingpongCount{0};
    int32_t mPreconditionMissCount GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<int32_t> mOptOnSamples{0};
    cindral::UnlockedField<int32_t> mOptOffSamples{0};
    float mFps GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<float> mOptOnFpsSum{0};
    cindral::UnlockedField<float> mOptOffFpsSum{0};
    float mIntervalSum GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<nsecs_t> mVsyncPeriod{-1};
    // Counted by whoever has stored a period or published what paces by it, before looking for the
    // other: of the two the second one sees what the first has done.
    cindral::UnlockedCount mPeriodTurns;
    cindral::UnlockedField<nsecs_t> mRenderTime{0};
    nsecs_t mSampleStart GUARDED_BY(mWorkLock) = 0;
    cindral::UnlockedField<nsecs_t> mLastQueueTime{0};
    nsecs_t mPrevQueueTime GUARDED_BY(mWorkLock) = 0;
    nsecs_t mLastWorkEnd GUARDED_BY(mWorkLock) = 0;
    nsecs_t mLastDecrementTime = 0;     // under the module's layer lock
    std::deque<nsecs_t> mStutterTimes;  // under the module's layer lock; at most five
    Checkpoint mCheckpoint GUARDED_BY(mStateLock) = Checkpoint::kNone;
    std::thread mMonitorThread;  // started by initEnvironment, joined by the destructor
    Mutex mStateLock ACQUIRED_AFTER(mWorkLock);
    Mutex mWorkLock;                    // held across one increment
    cindral::MonotonicCondition mCond;  // wakes the monitor thread
    cindral::PublishedPointer<PerfProxy> mPerfProxy;
    cindral::PublishedPointer<PowerProxy> mPowerProxy;              // optional
    cindral::PublishedPointer<PresetHeadroomRegulator> mRegulator;  // optional
};

namespace cindral {
inline constexpr char kTrackerTag[] = "Cindral.BufferLayerTracker";
}  // namespace cindral

}  // namespace android
