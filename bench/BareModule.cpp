// What loading, initialising and unloading a module of this interface cannot do without: a shared library
// that exports the same names, and whose initialisation opens the service's libraries, finds the entry
// points there, and asks what the library has to ask on a device on which the second generation is on.

#include <dlfcn.h>

#include "cindral.h"
#include "perf/ServiceApi.h"

using namespace android::cindral;

namespace {

void* gFeatureLibrary = nullptr;
void* gClientLibrary = nullptr;

[[gnu::destructor]] void closeServices() {
    if (gFeatureLibrary != nullptr) dlclose(gFeatureLibrary);
    if (gClientLibrary != nullptr) dlclose(gClientLibrary);
}

}  // namespace

bool cindralInit(void) {
    gFeatureLibrary = dlopen(kFeatureLibrary, RTLD_LAZY);
    gClientLibrary = dlopen(kClientLibrary, RTLD_NOW);
    const auto knob =
            reinterpret_cast<IsFeatureEnabledFn>(dlsym(gFeatureLibrary, "IsFeatureEnabled"));
    const auto property = reinterpret_cast<PerfGetPropFn>(dlsym(gClientLibrary, "perf_get_prop"));
    for (const char* name : {"perf_get_feedback", "perf_hint", "perf_lock_acq", "perf_lock_rel",
                             "perf_get_feedback_extn"})
        dlsym(gClientLibrary, name);
    reinterpret_cast<GetPerfHalVerFn>(dlsym(gClientLibrary, "get_perf_hal_ver"))();
    for (const int id : {5, 6, 7}) knob(id);
    for (const char* name :
         {"vendor.perf.pfar.enable", "vendor.perf.phr.enable", "vendor.perf.cindral.debug",
          "vendor.perf.pfar2.enable", "ro.vendor.perf.zgpe"})
        property(name, "0");
    return true;
}

void cindralSetVsyncPeriod(long) {}
void cindralTrackBufferIncrement(const char*) {}
void cindralTrackBufferDecrement(const char*, int) {}
void cindralTrackVsyncSignal(void) {}

namespace android {
void clearConfigs() {}
void updateLayerListLocked(const std::string&, bool) {}
}  // namespace android
