#include "cindral/ModuleState.h"

#include <sched.h>

namespace android {

using cindral::UnlockedField;

UnlockedField<nsecs_t> gVsyncPeriod{-1};
Mutex gInitLock;
Mutex gPerfProxyLock;
sp<PerfProxy> gPerfProxy;
Mutex gLayerLock;
std::vector<size_t> gGameHashes;
std::vector<sp<BufferLayerTracker>> gTrackers;
std::vector<std::string> gIgnoredLayers;

UnlockedField<bool> gInitialized{false};
UnlockedField<bool> gGfarEnabled{false};
UnlockedField<bool> gPhrEnabled{false};
UnlockedField<bool> gDebuggable{false};
UnlockedField<bool> gActive{false};
int32_t gMultiActiveCount = 0;
UnlockedField<bool> gCheckerRunning{false};

namespace {

// The checker thread is detached, and uses the state above. Constructed last, this is destroyed
// first and lets a checker that is still asking the service finish. What then remains of the thread
// is its way out of the thread function, a few instructions long.
class CheckerDrain {
  public:
    ~CheckerDrain() {
        while (gCheckerRunning) sched_yield();
    }
};

CheckerDrain gCheckerDrain;

}  // namespace

sp<PerfProxy> moduleClient() {
    Mutex::Autolock lock(gPerfProxyLock);
    return gPerfProxy;
}

void replaceModuleClient(const sp<PerfProxy>& client) {
    sp<PerfProxy> previous;  // dropped after the lock: closing libraries may take its time
    Mutex::Autolock lock(gPerfProxyLock);
    previous = gPerfProxy;
    gPerfProxy = client;
}

}  // namespace android
