#pragma once

#include <utils/LightRefBase.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <string>
#include <thread>

#include "perf/PropertyValue.h"
#include "perf/ServiceApi.h"
#include "platform/MonotonicCondition.h"
#include "platform/UnlockedField.h"

namespace android {

namespace cindral {
inline constexpr char kPerfProxyTag[] = "Cindral.PerfProxy";
}  // namespace cindral

// The library's only road to the device's performance service and its feature switches.
//
// Three things in one object: the binding to the two closed client libraries, where a missing
// library or entry point becomes a fixed answer, so that nobody else tests for the service; the
// boost engine, which turns missed deadlines into boosts on a thread of its own ("BP"); and the
// classification of layers as games. Objects are independent: each opens the libraries itself and
// has its own boost state.
//
// Threads: the wrappers and the classification keep no state and may be called from anywhere. They
// block as long as the service does. Of the boost engine, boostHint is called by the tracker's
// monitor thread, tryBoostRelease and the expectation by the threads that queue and consume
// buffers; none of them calls the service, but they wait for mBoostLock, which the boost thread
// holds while it does.
//
// Lifetime: whoever called startBoostThread calls stopBoostThread before the last strong pointer
// goes; destroying the object with the thread joinable ends the process. Locks taken with disablePl
// and disableCoreCtl are not released at the end.
//
// Failure: binding failures are logged once, at construction; the object is always usable.
class PerfProxy : public LightRefBase<PerfProxy> {
  public:
    PerfProxy();
    ~PerfProxy();
    PerfProxy(const PerfProxy&) = delete;
    PerfProxy& operator=(const PerfProxy&) = delete;

    // --- binding: arguments and results pass through unchanged ---

    int featureKnob(int id);                                       // 0 when unavailable
    PropertyValue perfGetProp(const char* name, const char* def);  // `def` when unavailable
    double getPerfHalVer();                                        // -1.0 when unavailable
    // -1 when unavailable, all of these.
    int perfGetFeedback(int request, const char* package);
    int perfGetFeedbackExtn(int request, const char* package, int count, int* values);
    int perfHint(int hintId, const char* package, int duration, int type);
    int perfLockAcq(int handle, int duration, int* list, int count);
    int perfLockRel(int handle);

    // Hold off (true) or hand back (false) the service's PL or core-control feature, by a lock
    // without an end. The handle is kept: handing back twice releases it twice.
    void disablePl(bool disable);
    void disableCoreCtl(bool disable);

    void setDebuggable(bool debuggable) { mDebuggable = debuggable; }
    void setBoostLevel(int level) { mBoostLevel = level; }
    void setFpsMode(int fps);

    // --- boost engine ---

    void startBoostThread();
    void stopBoostThread();

    // Asks for the boost of a passed checkpoint (1, 2 or 3).
    void boostHint(int checkpoint);
    // A buffer came while boosted: takes a checkpoint-3 boost back; the shorter ones are left to
    // run out.
    void tryBoostRelease();
    // Takes back the boost of any checkpoint.
    void boostRelease();

    // A boost was sent and no release served since.
    bool isBoosted() const { return mBoosted; }
    int getBoostCounter() const { return mBoostCounter; }  // boosts sent
    int getBoostHintCounter() const {
        return mBoostHintCounter;
    }  // hints handled, skipped ones included
    void resetStats();

    // One step up or down within -3 .. 3.
    void adjustBoostExpectation(bool up);
    void setBoostExpectationDegree(int degree) { mBoostExpectationDegree = degree; }
    int getBoostExpectationDegree() const { return mBoostExpectationDegree; }

    // With negative boosts in use, checkpoint-1 boosts are never skipped.
    void setNegativeBoostProp(bool negativeBoosts) { mNegativeBoostProp = negativeBoosts; }

    // --- classification of layers ---

    // The package in a layer name, or an empty text. May throw std::bad_alloc.
    std::string getPackageName(const std::string& layerName);
    // Whether the service calls the layer's package a game. May throw std::bad_alloc.
    bool isGameLayer(const std::string& layerName);
    // The service's weight of the layer's package; -1 without an answer.
    int getGameWeight(const std::string& layerName) noexcept;

  private:
    enum BoostRequest : int32_t {
        BOOST_REQUEST_NONE = -1,
        BOOST_REQUEST_HINT = 1,
        BOOST_REQUEST_RELEASE = 2,
    };

    void bindServices();
    bool bindRequiredEntryPoints();
    void bindVersionedEntryPoints();

    void threadMain();
    void serveRequest() REQUIRES(mBoostLock);
    void boostHintImp() REQUIRES(mBoostLock);
    void boostReleaseImp() REQUIRES(mBoostLock);

    int queryGameWeight(const std::string& package);

    // The binding: written by the constructor, read-only afterwards.
    double mHalVersion = cindral::kLastHalVersionWithoutExtn;

    // The boost engine. Unlocked fields are written by one side and read by another without
    // mBoostLock, by design; a lost update of a counter or of the degree is accepted.
    bool mRunning GUARDED_BY(mBoostLock) = true;  // never set again once cleared
    cindral::UnlockedField<bool> mBoosted{false};
    cindral::UnlockedField<bool> mNegativeBoostProp{false};
    cindral::UnlockedField<bool> mDebuggable{false};
    cindral::UnlockedField<int32_t> mFps{60};
    cindral::UnlockedField<int32_t> mFrameIntervalMs{16};
    // Keeps its last value after it was served: every wake-up serves what is stored.
    cindral::UnlockedField<int32_t> mBoostRequest{BOOST_REQUEST_NONE};
    cindral::UnlockedField<int32_t> mBoostCheckpoint{-1};
    cindral::UnlockedField<int32_t> mBoostCounter{0};
    cindral::UnlockedField<int32_t> mBoostHintCounter{0};
    cindral::UnlockedField<int32_t> mBoostExpectationDegree{0};
    cindral::UnlockedField<int32_t> mBoostLevel{0};  // lowest checkpoint that is acted on

    // Written by disablePl and disableCoreCtl; the tracker's two threads call them without a lock.
    cindral::UnlockedField<int32_t> mPlLockHandle{-1};
    cindral::UnlockedField<int32_t> mCoreCtlLockHandle{-1};

    // The binding, continued.
    void* mFeatureLibrary = nullptr;
    void* mClientLibrary = nullptr;
    cindral::IsFeatureEnabledFn mIsFeatureEnabled = nullptr;
    cindral::PerfGetPropFn mPerfGetProp = nullptr;
    cindral::PerfGetFeedbackFn mPerfGetFeedback = nullptr;
    cindral::PerfGetFeedbackExtnFn mPerfGetFeedbackExtn = nullptr;
    cindral::PerfHintFn mPerfHint = nullptr;
    cindral::PerfLockAcqFn mPerfLockAcq = nullptr;
    cindral::PerfLockRelFn mPerfLockRel = nullptr;
    cindral::GetPerfHalVerFn mGetPerfHalVer = nullptr;

    // Guards the hand-over of a request to the boost thread, which holds it except while it waits,
    // and so through every call of the service.
    Mutex mBoostLock;
    cindral::MonotonicCondition mBoostCondition;
    std::thread mBoostThread;  // touched only by startBoostThread and stopBoostThread
};

}  // namespace android
