#include "bench/Scene.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "bench/LibraryThreads.h"
#include "device/Process.h"

namespace bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr const char* kLayers[] = {
        "SurfaceView[com.example.game/com.example.game.MainActivity](BLAST)#117",
        "SurfaceView[com.example.other/com.example.other.Main](BLAST)#118",
};
constexpr const char* kIgnored[] = {
        "StatusBar#73",
        "NavigationBar0#71",
        "com.android.systemui.ImageWallpaper#55",
        "com.example.launcher/com.example.launcher.Launcher#96",
};
static_assert(std::size(kIgnored) == Scene::kIgnoredLayers);

// The environment is built when a tracker's properties are asked for.
std::atomic<bool> gHasEnvironment{false};

void noticeEnvironment(const device::Event& event) {
    if (event.text == "vendor.perf.pfar2.boost_level") gHasEnvironment = true;
}

// Polls; a measurement has not begun.
template <typename Condition>
void waitUntil(Condition condition, const char* what) {
    constexpr int64_t kLongestNs = 20'000'000'000;
    for (const int64_t end = nowNs() + kLongestNs; !condition();) {
        if (nowNs() > end) throw std::runtime_error(std::string("not ready: ") + what);
        sched_yield();
    }
}

}  // namespace

int64_t nowNs() {
    return nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

const char* Scene::layer(int tracker) {
    return kLayers[tracker];
}

const char* Scene::ignoredLayer(int index) {
    return kIgnored[index];
}

void Scene::configureDevice() {
    gHasEnvironment = false;
    const auto onOff = [](bool on) { return on ? "1" : "0"; };
    // Something has to be on for the library to be active.
    const bool frameRegulator = mOptions.frameRegulator || !mOptions.headroom;
    auto& device = device::StandInDevice::instance();
    device.setEventSink(noticeEnvironment);
    device.reset({{"vendor.perf.pfar2.enable", onOff(frameRegulator)},
                  {"vendor.perf.phr.enable", onOff(mOptions.headroom)},
                  {"vendor.perf.pfar2.hgpe.enable", onOff(mOptions.power)}},
                 {"com.example.game", "com.example.other"});
}

Scene::Scene(const SceneOptions& options) : mOptions(options) {
    // The C library locks more cheaply in a process that never had a second thread. A compositor is
    // no such process.
    std::thread([] {}).join();
    configureDevice();
    threads::runOnly(threads::kEvery);
    mLibrary = std::make_unique<device::CindralLibrary>();
    if (!mOptions.initialised) return;
    const device::Game game(*mLibrary, {kLayers, kLayers + mOptions.trackers}, kPeriodNs);
    const auto isClassified = [] { return device::countThreads() == 1; };
    if (!game.start([&] { waitUntil(isClassified, "the game-layer checker goes on"); }))
        throw std::runtime_error("the library stays inactive");
    for (const char* ignored : kIgnored) mLibrary->trackBufferIncrement(ignored);
    if (mOptions.hasEnvironment()) buildEnvironment(game);
    mMeasuringSince = nowNs();
}

Scene::~Scene() {
    mLibrary.reset();  // before the service libraries
}

void Scene::buildEnvironment(const device::Game& game) {
    // In the order in which the library starts them: monitor, boost, headroom.
    const int headroomThread = mOptions.frameRegulator ? 3 : 1;
    threads::runOnly(mOptions.headroomThread ? headroomThread : 0);
    const int idleBefore = threads::idleCount();
    if (!game.playUntil([] { return gHasEnvironment.load(); }))
        throw std::runtime_error("no environment is built at 60 Hz");
    game.startPacing();
    if (mOptions.headroomThread)
        waitUntil([&] { return threads::idleCount() > idleBefore; }, "no headroom thread");
}

void Scene::keepMeasuring() {
    if (!mOptions.hasEnvironment() || nowNs() - mMeasuringSince < 700'000'000) return;
    std::this_thread::sleep_for(milliseconds(151));  // ends a measuring period without closing it
    for (int frame = 0; frame < 5; ++frame) {        // and what the pause has set off is over
        if (mOptions.headroomThread) release();
        mLibrary->trackBufferIncrement(layer(0));
        std::this_thread::sleep_for(milliseconds(1));
    }
    mMeasuringSince = nowNs();
}

void Scene::release() {
    const int before = threads::idleCount();
    mLibrary->trackVsyncSignal();
    waitUntil([&] { return threads::idleCount() > before; }, "the headroom thread");
}

}  // namespace bench
