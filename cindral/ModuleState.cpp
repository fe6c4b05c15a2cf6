#include "cindral/ModuleState.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

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
UnlockedField<pid_t> gCheckerThread{kNoThread};
cindral::UnlockedCount gCheckers;
std::vector<sp<PerfProxy>> gCheckerClients;

namespace {

// The checker thread is detached, and uses the state above and the library's code. Constructed
// last, this is destroyed first: it lets a checker that is still asking the service finish, and
// then gives the thread, which has only to leave its function, the time to be gone from the
// process.
class CheckerDrain {
  public:
    ~CheckerDrain() {
        // Sleeps rather than yields: the thread that unloads may be a real-time one, of a higher
        // priority than the checker.
        while (gCheckers != 0) std::this_thread::sleep_for(kPollInterval);
        {
            Mutex::Autolock lock(gLayerLock);  // everything the checker did under it has happened
        }
        // Bounded, as a checker that ended long ago may have left its number to another thread.
        for (int i = 0; i < kMostPolls && isAlive(gCheckerThread); ++i) {
            // Not reached by a test, which cannot stop a checker between its last act and its end.
            std::this_thread::sleep_for(kPollInterval);  // GCOVR_EXCL_LINE
        }
    }

  private:
    static constexpr std::chrono::microseconds kPollInterval{100};
    static constexpr int kMostPolls = 100;

    static bool isAlive(pid_t thread) {
        return thread != kNoThread && tgkill(getpid(), thread, 0) == 0;
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

void giveClientBack(const PerfProxy& client) {
    // Held until the reference is gone: the module's own one keeps it from being the last.
    Mutex::Autolock lock(gPerfProxyLock);
    if (gPerfProxy.get() != &client) return;
    gCheckerClients.erase(std::find(gCheckerClients.begin(), gCheckerClients.end(), gPerfProxy));
}

}  // namespace android
