// Which layers are tracked and which are ignored.

#include <new>

#include "cindral/ModuleState.h"
#include "platform/Log.h"

namespace android {

using namespace cindral;

namespace {

constexpr size_t kMaxTrackers = 2;
constexpr size_t kMaxIgnoredLayers = 4;

// An oldest tracker that queued a buffer within this time is not given up for a third layer.
constexpr nsecs_t kActiveWithinNs = 999'999'999;
// So many requests of further layers change nothing while the oldest tracker is active. From the next
// one on, whoever asks is ignored.
constexpr int32_t kMaxMultiActiveRefusals = 200;

void ignoreLayer(const std::string& layerName) REQUIRES(gLayerLock) {
    if (gIgnoredLayers.size() == kMaxIgnoredLayers) gIgnoredLayers.erase(gIgnoredLayers.begin());
    gIgnoredLayers.push_back(layerName);
}

// A third layer asks for a tracker while the oldest one is active.
void refuseLayer(const std::string& layerName) REQUIRES(gLayerLock) {
    // Until the limit nothing changes, and the layer asks again with its next buffer. Beyond it the
    // count stays where it is, so that every further layer is ignored at once.
    if (gMultiActiveCount <= kMaxMultiActiveRefusals) ++gMultiActiveCount;
    if (gMultiActiveCount <= kMaxMultiActiveRefusals) return;
    ignoreLayer(layerName);
    CINDRAL_LOGW(gDebuggable, kModuleTag, "Multi active layers are detected!");
}

// Makes room for one more tracker. Returns false while the oldest one is active; the other one
// plays no part.
bool retireOldestTracker() REQUIRES(gLayerLock) {
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    const sp<BufferLayerTracker>& oldest = gTrackers.front();
    if (now - oldest->lastQueueTime() <= kActiveWithinNs) return false;
    gMultiActiveCount = 0;
    oldest->checkForExit();
    // On a checker's thread: the place that its verdict keeps.
    if (!gCheckerClients.empty() && gCheckerClients.back() == nullptr)
        gCheckerClients.back() = oldest->serviceClient();
    gTrackers.erase(gTrackers.begin());
    return true;
}

void trackLayer(const std::string& layerName) REQUIRES(gLayerLock) {
    if (gTrackers.size() == kMaxTrackers && !retireOldestTracker()) {
        refuseLayer(layerName);
        return;
    }
    const sp<BufferLayerTracker> tracker = new (std::nothrow)
            BufferLayerTracker(layerName, gGfarEnabled, gPhrEnabled, gDebuggable);
    if (tracker == nullptr) {
        // A checker whose verdict this was can do no more for its layer, so the next one may start.
        // On the way of a known game another checker may be running; the next may start all the same.
        gCheckerRunning = false;
        return;
    }
    gTrackers.push_back(tracker);
    tracker->setVsyncPeriod(gVsyncPeriod);
}

}  // namespace

void updateLayerListLocked(const std::string& layerName, bool isGame) {
    try {
        if (isGame) {
            trackLayer(layerName);
        } else {
            ignoreLayer(layerName);
        }
    } catch (...) {
        // Out of memory: the layer stays unknown and asks again with its next buffer.
        if (isGame) gCheckerRunning = false;
    }
}

}  // namespace android
