// What the compositor reports, on its way to the layer's tracker.

#include <cutils/trace.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <thread>

#include "cindral/Contain.h"
#include "cindral/ModuleState.h"
#include "platform/Log.h"

namespace android {

using namespace cindral;

namespace {

// Lengths first, which tell most names apart. This and its users are inlined, as they begin a path
// that every buffer takes.
[[gnu::always_inline]] inline bool isCalled(const std::string& name, std::string_view layerName) {
    return name.size() == layerName.size() &&
           std::memcmp(name.data(), layerName.data(), layerName.size()) == 0;
}

[[gnu::always_inline]] inline BufferLayerTracker* findTracker(std::string_view layerName)
        REQUIRES(gLayerLock) {
    for (const sp<BufferLayerTracker>& tracker : gTrackers) {
        if (isCalled(tracker->name(), layerName)) return tracker.get();
    }
    return nullptr;
}

[[gnu::always_inline]] inline bool isIgnored(std::string_view layerName) REQUIRES(gLayerLock) {
    for (const std::string& ignored : gIgnoredLayers) {
        if (isCalled(ignored, layerName)) return true;
    }
    return false;
}

bool isKnownGame(size_t packageHash) REQUIRES(gLayerLock) {
    return std::find(gGameHashes.begin(), gGameHashes.end(), packageHash) != gGameHashes.end();
}

// The service's answer, which may be slow, so without gLayerLock; none without the memory to ask.
std::optional<bool> askAbout(PerfProxy& client, const std::string& layerName) noexcept {
    try {
        return client.isGameLayer(layerName);
    } catch (...) {
        return std::nullopt;
    }
}

void enterVerdict(const std::string& layerName, size_t packageHash, bool isGame) noexcept
        REQUIRES(gLayerLock) {
    try {
        if (isGame) gGameHashes.push_back(packageHash);
        // The place for what a retirement leaves; once it is there nothing may fail.
        gCheckerClients.emplace_back();
        updateLayerListLocked(layerName, isGame);
        if (gCheckerClients.back() == nullptr) gCheckerClients.pop_back();
    } catch (...) {
        // Out of memory: the layer stays unknown and asks again with its next buffer.
    }
}

// The game-layer checker: one question.
void checkGameLayer(PerfProxy& client, const std::string& layerName, size_t packageHash) {
    gCheckerThread = gettid();
    if (gDebuggable) atrace_begin(ATRACE_TAG_ALWAYS, "game layer checker.");
    const std::optional<bool> isGame = askAbout(client, layerName);
    {
        Mutex::Autolock lock(gLayerLock);
        giveClientBack(client);
        if (isGame) enterVerdict(layerName, packageHash, *isGame);
    }
    if (gDebuggable) atrace_end(ATRACE_TAG_ALWAYS);
    gCheckerRunning = false;
    --gCheckers;
}

void startChecker(const sp<PerfProxy>& client, const std::string& layerName, size_t packageHash)
        REQUIRES(gLayerLock) {
    if (gCheckers == 0) gCheckerClients.clear();
    gCheckerRunning = true;
    ++gCheckers;
    try {
        gCheckerClients.push_back(client);
        std::thread([asked = client.get(), layerName, packageHash] {
            checkGameLayer(*asked, layerName, packageHash);
        }).detach();
        return;
    } catch (...) {
        // No thread, or no memory for one.
    }
    gCheckerRunning = false;
    --gCheckers;
    CINDRAL_LOGE(kModuleTag, "game checker thread create failed!");
}

// Apart from the road that most buffers take.
[[gnu::noinline, gnu::cold]] void classifyLayer(const std::string& layerName) REQUIRES(gLayerLock) {
    const sp<PerfProxy> client = moduleClient();
    if (client == nullptr) return;  // a failed initialisation: nobody to ask
    const std::string package = client->getPackageName(layerName);
    if (package.empty()) {
        updateLayerListLocked(layerName, false);
        return;
    }
    const size_t packageHash = std::hash<std::string>()(package);
    if (isKnownGame(packageHash)) {
        updateLayerListLocked(layerName, true);
    } else if (!gCheckerRunning) {
        startChecker(client, layerName, packageHash);
    }
    // With a checker already running, the layer asks again with its next buffer.
}

void trackBufferIncrement(std::string_view layerName) {
    BufferLayerTracker* tracker = nullptr;
    {
        Mutex::Autolock lock(gLayerLock);
        if (isIgnored(layerName)) return;
        tracker = findTracker(layerName);
        if (tracker == nullptr) {
            classifyLayer(std::string(layerName));
            return;
        }
        // From here on the work lock keeps the tracker: retiring it waits for that lock first.
        tracker->lockForWork();
    }
    tracker->onBufferIncrement();
}

void trackBufferDecrement(std::string_view layerName, int pending) {
    Mutex::Autolock lock(gLayerLock);
    if (BufferLayerTracker* tracker = findTracker(layerName)) tracker->onBufferDecrement(pending);
}

void forwardVsyncPeriod(long period) {
    gVsyncPeriod = period;
    Mutex::Autolock lock(gLayerLock);
    for (const sp<BufferLayerTracker>& tracker : gTrackers) tracker->setVsyncPeriod(period);
}

void trackVsync() {
    const nsecs_t timestamp = systemTime(SYSTEM_TIME_MONOTONIC);
    Mutex::Autolock lock(gLayerLock);
    for (const sp<BufferLayerTracker>& tracker : gTrackers) tracker->onVsync(timestamp);
}

}  // namespace

}  // namespace android

void cindralSetVsyncPeriod(long period) {
    if (android::gActive) android::contain<android::forwardVsyncPeriod>(period);
}

void cindralTrackBufferIncrement(const char* layerName) {
    if (!android::gActive || layerName == nullptr) return;
    android::contain<android::trackBufferIncrement>(layerName);
}

void cindralTrackBufferDecrement(const char* layerName, int pending) {
    if (!android::gActive || layerName == nullptr) return;
    android::contain<android::trackBufferDecrement>(layerName, pending);
}

void cindralTrackVsyncSignal(void) {
    if (android::gActive) android::contain<android::trackVsync>();
}
