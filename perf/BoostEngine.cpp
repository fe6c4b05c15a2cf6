// The boost engine of PerfProxy: requests come in from the tracker's threads, the boost thread
// serves them.

#include <cstdio>

#include "perf/BoostRules.h"
#include "perf/PerfProxy.h"
#include "platform/Log.h"
#include "platform/Thread.h"
#include "platform/Trace.h"

namespace android {

using namespace cindral;

namespace {
constexpr int kReleaseDurationMs = 0;
constexpr int kReleaseType = 0;
constexpr size_t kHintTextSize = 32;
}  // namespace

void PerfProxy::startBoostThread() {
    if (!tryStartThread(mBoostThread, [this] { threadMain(); })) {
        CINDRAL_LOGE(kPerfProxyTag, "BoostThread Creation Failed");
        return;
    }
    // Only while debugging: otherwise the thread keeps the name it inherited.
    if (mDebuggable) nameThread(mBoostThread, "BP");
}

void PerfProxy::stopBoostThread() {
    {
        Mutex::Autolock lock(mBoostLock);
        mRunning = false;
        mBoostCondition.signal();
    }
    if (mBoostThread.joinable()) mBoostThread.join();
}

void PerfProxy::boostHint(int checkpoint) {
    Mutex::Autolock lock(mBoostLock);
    mBoostRequest = BOOST_REQUEST_HINT;
    mBoostCheckpoint = checkpoint;
    mBoostCondition.signal();
}

void PerfProxy::tryBoostRelease() {
    // Stored without the lock: a boost thread that is inside a hint, and holds the lock, finds the
    // release as soon as the service returns.
    mBoostRequest = BOOST_REQUEST_RELEASE;
    if (mBoostCheckpoint != kCheckpoint3) return;
    boostRelease();
}

void PerfProxy::boostRelease() {
    Mutex::Autolock lock(mBoostLock);
    mBoostRequest = BOOST_REQUEST_RELEASE;
    mBoostCondition.signal();
}

void PerfProxy::resetStats() {
    mBoostCounter = 0;
    mBoostHintCounter = 0;
    mBoostExpectationDegree = 0;  // learned from the hints that are no longer counted
}

void PerfProxy::adjustBoostExpectation(bool up) {
    const int32_t before = mBoostExpectationDegree;
    const std::optional<int32_t> stepped = steppedExpectation(before, up);
    if (stepped) mBoostExpectationDegree = *stepped;
    if (!mDebuggable) return;
    char text[kHintTextSize];
    snprintf(text, sizeof(text), "mBoostExpectationDegree = %d", stepped.value_or(before));
    traceMarker(mDebuggable, text);
}

void PerfProxy::threadMain() {
    enterRealtimeScheduling();
    Mutex::Autolock lock(mBoostLock);
    while (mRunning) {
        // No predicate: a release may be stored without a signal, so every return from the wait serves
        // whatever is there.
        mBoostCondition.wait(mBoostLock);
        serveRequest();
    }
}

void PerfProxy::serveRequest() {
    const int32_t request = mBoostRequest;
    if (request == BOOST_REQUEST_HINT) {
        if (!mRunning) return;
        boostHintImp();
        if (mBoostRequest == BOOST_REQUEST_RELEASE) boostReleaseImp();
    } else if (request == BOOST_REQUEST_RELEASE) {
        boostReleaseImp();
    }
}

void PerfProxy::boostHintImp() {
    const int32_t checkpoint = mBoostCheckpoint;
    if (checkpoint < mBoostLevel) return;
    mBoostHintCounter = mBoostHintCounter + 1;
    if (isBoostSkipped(checkpoint, mBoostExpectationDegree, mNegativeBoostProp)) {
        traceMarker(mDebuggable, "skip boost");
        return;
    }
    const auto boost = boostFor(checkpoint, mFps, mFrameIntervalMs);
    if (!boost) return;
    mBoosted = true;
    mBoostCounter = mBoostCounter + 1;
    TraceSection section(mDebuggable, boost->text);
    CINDRAL_LOGD(mDebuggable, kPerfProxyTag, "%s", boost->text);
    perfHint(kBoostHintId, nullptr, boost->durationMs, boost->type);
}

void PerfProxy::boostReleaseImp() {
    TraceSection section(mDebuggable, "boostReleaseImp");
    mBoosted = false;
    perfHint(kBoostHintId, nullptr, kReleaseDurationMs, kReleaseType);
}

}  // namespace android
