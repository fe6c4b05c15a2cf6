#include "perf/PerfProxy.h"

#include <dlfcn.h>

#include "platform/Log.h"

namespace android {

using namespace cindral;

namespace {

// Locks of the service's features: one resource opcode and the value it is held at.
constexpr int kPlLock[] = {0x41444000, 0};
constexpr int kCoreCtlLock[] = {0x41000000, 3};
constexpr int kNewLock = 0;
constexpr int kUntilReleased = 0;

void* openLibrary(const char* name, int mode) {
    void* library = dlopen(name, mode);
    if (library == nullptr) {
        // The full stop after the line end is part of the text. dlerror is per thread here and on
        // Android. NOLINTNEXTLINE(concurrency-mt-unsafe)
        CINDRAL_LOGE(kPerfProxyTag, "Unable to open %s: %s\n.", name, dlerror());
    }
    return library;
}

template <typename Function>
bool bind(void* library, const char* name, Function& function) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    return function != nullptr;
}

template <typename Function>
bool bindOrLog(void* library, const char* name, Function& function) {
    if (bind(library, name, function)) return true;
    CINDRAL_LOGE(kPerfProxyTag, "Unable to find %s function.\n", name);
    return false;
}

int acquire(PerfLockAcqFn acquireLock, const int (&lock)[2]) {
    if (acquireLock == nullptr) return kUnavailable;
    int list[] = {lock[0], lock[1]};
    return acquireLock(kNewLock, kUntilReleased, list, 2);
}

}  // namespace

PerfProxy::PerfProxy() {
    bindServices();
}

PerfProxy::~PerfProxy() {
    if (mFeatureLibrary != nullptr) dlclose(mFeatureLibrary);
    if (mClientLibrary != nullptr) dlclose(mClientLibrary);
}

void PerfProxy::bindServices() {
    mFeatureLibrary = openLibrary(kFeatureLibrary, RTLD_LAZY);
    if (mFeatureLibrary == nullptr) return;
    mClientLibrary = openLibrary(kClientLibrary, RTLD_NOW);
    if (mClientLibrary == nullptr) return;
    if (bindRequiredEntryPoints()) bindVersionedEntryPoints();
}

// Stops at the first entry point that is missing; those after it stay unavailable.
bool PerfProxy::bindRequiredEntryPoints() {
    return bindOrLog(mFeatureLibrary, "IsFeatureEnabled", mIsFeatureEnabled) &&
           bindOrLog(mClientLibrary, "perf_get_prop", mPerfGetProp) &&
           bindOrLog(mClientLibrary, "perf_get_feedback", mPerfGetFeedback) &&
           bindOrLog(mClientLibrary, "perf_hint", mPerfHint) &&
           bindOrLog(mClientLibrary, "perf_lock_acq", mPerfLockAcq) &&
           bindOrLog(mClientLibrary, "perf_lock_rel", mPerfLockRel);
}

void PerfProxy::bindVersionedEntryPoints() {
    if (!bind(mClientLibrary, "get_perf_hal_ver", mGetPerfHalVer)) {
        // Silent in practice, as nobody has set the switch during construction.
        CINDRAL_LOGD(mDebuggable, kPerfProxyTag, "Unable to find get_perf_hal_ver function.\n");
        return;
    }
    mHalVersion = mGetPerfHalVer();
    if (mHalVersion > kLastHalVersionWithoutExtn) {
        bind(mClientLibrary, "perf_get_feedback_extn", mPerfGetFeedbackExtn);
    }
}

int PerfProxy::featureKnob(int id) {
    return mIsFeatureEnabled != nullptr ? mIsFeatureEnabled(id) : kFeatureOff;
}

PropertyValue PerfProxy::perfGetProp(const char* name, const char* def) {
    if (mPerfGetProp == nullptr) return PropertyValue::copyOf(def);
    PropertyValue value = mPerfGetProp(name, def);
    value.text[PropertyValue::kSize - 1] = '\0';  // whatever the service put there
    return value;
}

double PerfProxy::getPerfHalVer() {
    return mGetPerfHalVer != nullptr ? mGetPerfHalVer() : kHalVersionUnavailable;
}

int PerfProxy::perfGetFeedback(int request, const char* package) {
    return mPerfGetFeedback != nullptr ? mPerfGetFeedback(request, package) : kUnavailable;
}

int PerfProxy::perfGetFeedbackExtn(int request, const char* package, int count, int* values) {
    return mPerfGetFeedbackExtn != nullptr ? mPerfGetFeedbackExtn(request, package, count, values)
                                           : kUnavailable;
}

int PerfProxy::perfHint(int hintId, const char* package, int duration, int type) {
    return mPerfHint != nullptr ? mPerfHint(hintId, package, duration, type) : kUnavailable;
}

int PerfProxy::perfLockAcq(int handle, int duration, int* list, int count) {
    return mPerfLockAcq != nullptr ? mPerfLockAcq(handle, duration, list, count) : kUnavailable;
}

int PerfProxy::perfLockRel(int handle) {
    return mPerfLockRel != nullptr ? mPerfLockRel(handle) : kUnavailable;
}

void PerfProxy::disablePl(bool disable) {
    if (disable) {
        mPlLockHandle = acquire(mPerfLockAcq, kPlLock);
    } else {
        perfLockRel(mPlLockHandle);
    }
}

void PerfProxy::disableCoreCtl(bool disable) {
    if (disable) {
        mCoreCtlLockHandle = acquire(mPerfLockAcq, kCoreCtlLock);
    } else {
        perfLockRel(mCoreCtlLockHandle);
    }
}

void PerfProxy::setFpsMode(int fps) {
    mFps = fps;
    mFrameIntervalMs = fps != 0 ? 1000 / fps : 0;
}

}  // namespace android
