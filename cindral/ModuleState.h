#pragma once

#include <sys/types.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cindral.h"
#include "perf/PerfProxy.h"
#include "platform/UnlockedField.h"
#include "tracker/BufferLayerTracker.h"

// The state of the module, constructed when the library is loaded and destroyed, in the reverse
// order, when it is unloaded. Before that, no entry point may be running any more.

namespace android {

namespace cindral {
inline constexpr char kModuleTag[] = "Cindral";
}  // namespace cindral

// "Unlocked": read by the entry points without a lock, by design.

extern cindral::UnlockedField<nsecs_t> gVsyncPeriod;  // unlocked; given to every new tracker

// Serialises cindralInit, and is never taken together with gLayerLock.
extern Mutex gInitLock;

// The module's own service client. cindralInit may replace it while others use it, so it is only
// reached through moduleClient and replaceModuleClient.
extern Mutex gPerfProxyLock;
extern sp<PerfProxy> gPerfProxy GUARDED_BY(gPerfProxyLock);

// The outermost lock. The lock order of the library:
//
//   gLayerLock -> a tracker's mWorkLock -> its mStateLock -> PerfProxy::mBoostLock,
//                                                         or PowerProxy::mLock
//   gLayerLock -> a regulator's mVsyncLock -> its mQueueLock
//
// gInitLock is taken with none of these. gPerfProxyLock is held for copying a pointer, under
// anything.
extern Mutex gLayerLock;

// Hashes of the packages known to be games. Only grows.
extern std::vector<size_t> gGameHashes GUARDED_BY(gLayerLock);
// The tracked layers and the names to be skipped, oldest first: at most two and four.
extern std::vector<sp<BufferLayerTracker>> gTrackers GUARDED_BY(gLayerLock);
extern std::vector<std::string> gIgnoredLayers GUARDED_BY(gLayerLock);

// Unlocked. Written by cindralInit, which clearConfigs may overtake; gActive by cindralInit alone.
extern cindral::UnlockedField<bool> gInitialized;
extern cindral::UnlockedField<bool> gGfarEnabled;
extern cindral::UnlockedField<bool> gPhrEnabled;
extern cindral::UnlockedField<bool> gDebuggable;
extern cindral::UnlockedField<bool> gActive;

// How often in a row a third game layer was refused.
extern int32_t gMultiActiveCount GUARDED_BY(gLayerLock);

// Unlocked. Whether a game-layer checker runs, cleared by the checker at its end, and by the registry
// when it has no memory for a tracker; and the kernel's number of the latest checker.
inline constexpr pid_t kNoThread = 0;
extern cindral::UnlockedField<bool> gCheckerRunning;
extern cindral::UnlockedField<pid_t> gCheckerThread;

// The checkers that have not ended. More than one only when the registry cleared gCheckerRunning.
extern cindral::UnlockedCount gCheckers;

// Strong references to the clients whose last user may be a checker: the one it asks, until it has its
// answer or, if cindralInit replaced that client meanwhile, beyond; and the one of a tracker that its
// verdict retires. They keep a checker from ever closing the service's libraries: that takes the
// loader's lock, and whoever unloads this library holds it while waiting for the checker. What is left
// of them is dropped when the next checker starts, by whoever starts it, or with the module.
// A null last element is the place that a verdict under way keeps for the client of a tracker it
// retires: retireOldestTracker puts that client there, and allocates nothing.
extern std::vector<sp<PerfProxy>> gCheckerClients GUARDED_BY(gLayerLock);

// A strong reference to the module's client for the time of one use; may be null.
sp<PerfProxy> moduleClient() EXCLUDES(gPerfProxyLock);
// Puts `client` in place and drops the previous one.
void replaceModuleClient(const sp<PerfProxy>& client) EXCLUDES(gPerfProxyLock);
// Ends a checker's use of `client`, so that cindralInit can destroy it when it replaces it.
void giveClientBack(const PerfProxy& client) REQUIRES(gLayerLock) EXCLUDES(gPerfProxyLock);

// Declared again for the lock it needs, which its public declaration cannot name.
void updateLayerListLocked(const std::string& layerName, bool isGame) REQUIRES(gLayerLock);

}  // namespace android
