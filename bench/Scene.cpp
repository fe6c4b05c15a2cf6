#include "bench/Scene.h"

#include <sched.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "bench/Clock.h"
#include "bench/LibraryThreads.h"

namespace bench {

using device::EntryPoint;
using device::Event;
using device::StandInDevice;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr const char* kLayers[] = {
        "SurfaceView[com.example.game/com.example.game.MainActivity](BLAST)#117",
        "SurfaceView[com.example.other/com.example.other.Main](BLAST)#118",
};
constexpr const char* kIgnoredLayers[] = {
        "StatusBar#73",
        "NavigationBar0#71",
        "com.android.systemui.ImageWallpaper#55",
        "com.example.launcher/com.example.launcher.Launcher#96",
};
static_assert(std::size(kIgnoredLayers) == Scene::kIgnoredLayers);

// Environments are built when a tracker's properties are asked for.
std::atomic<int> gEnvironments{0};

void countEnvironments(const Event& event) {
    if (event.entryPoint == EntryPoint::kPerfGetProp &&
        event.text == "vendor.perf.pfar2.boost_level")
        ++gEnvironments;
}

// Polls; a measurement has not begun.
template <typename Condition>
void waitUntil(Condition condition, const char* what) {
    const auto deadline = Clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (Clock::now() > deadline)
            throw std::runtime_error(std::string("the library did not get ready: ") + what);
        std::this_thread::sleep_for(milliseconds(1));
    }
}

// The C library locks more cheaply in a process that never had a second thread. A compositor is no
// such process.
void makeProcessMultithreaded() {
    static const int kOnce = (std::thread([] {}).join(), 0);
    (void)kOnce;
}

const char* onOff(bool on) {
    return on ? "1" : "0";
}

}  // namespace

void configureDevice(const SceneOptions& options) {
    StandInDevice& device = StandInDevice::instance();
    gEnvironments = 0;
    device.setEventSink(countEnvironments);
    device.reset({{"vendor.perf.pfar2.enable", onOff(options.frameRegulator)},
                  {"vendor.perf.phr.enable", onOff(options.headroom)},
                  {"vendor.perf.pfar2.hgpe.enable", onOff(options.power)}},
                 {"com.example.game", "com.example.other"});
}

const char* Scene::layer(int tracker) {
    return kLayers[tracker];
}

const char* Scene::ignoredLayer(int index) {
    return bench::kIgnoredLayers[index];
}

Scene::Scene(const SceneOptions& options) : mOptions(options) {
    makeProcessMultithreaded();
    configureDevice(mOptions);
    threads::letRun({});
    mLibrary = std::make_unique<device::CindralLibrary>();
    floor::setLayer(layer(0));
    if (!mOptions.initialised) return;
    if (!mLibrary->init()) throw std::runtime_error("the library stays inactive");
    mLibrary->setVsyncPeriod(kPeriodNs);
    if (mOptions.ignoredLayers) fillIgnoreList();
    trackLayers();
    if (mOptions.environment) buildEnvironments();
    mMeasuringSince = nowNs();
}

Scene::~Scene() {
    mLibrary.reset();  // before the service libraries
    threads::skipTimers(false);
}

void Scene::fillIgnoreList() {
    for (int i = 0; i < kIgnoredLayers; ++i) mLibrary->trackBufferIncrement(ignoredLayer(i));
}

void Scene::trackLayers() {
    for (int i = 0; i < mOptions.trackers; ++i) {
        mLibrary->trackBufferIncrement(layer(i));
        waitUntil([] { return threads::running() == 0; }, "the game-layer checker goes on");
    }
}

void Scene::buildEnvironments() {
    // In the order in which the library starts them: monitor, boost, headroom.
    const bool all = mOptions.threads == LibraryThreads::kAll;
    std::vector<bool> decisions;
    for (int i = 0; i < mOptions.trackers; ++i) {
        if (mOptions.frameRegulator) decisions.insert(decisions.end(), {all, all});
        if (mOptions.headroom)
            decisions.push_back(all || mOptions.threads == LibraryThreads::kHeadroom);
    }
    threads::letRun(decisions);
    const int idleBefore = threads::idleCount();

    // A busy machine may need several attempts to keep the rate for a second.
    constexpr int kMostFrames = 6'000;
    auto next = Clock::now();
    for (int frame = 0; gEnvironments < mOptions.trackers; ++frame) {
        if (frame > kMostFrames)
            throw std::runtime_error("the library builds no environment at 60 Hz");
        std::this_thread::sleep_until(next);
        const auto behind = Clock::now() - next;
        next += nanoseconds(kPeriodNs);
        if (behind > milliseconds(100)) next = Clock::now() + nanoseconds(kPeriodNs);
        for (int i = 0; i < mOptions.trackers; ++i) {
            mLibrary->trackBufferIncrement(layer(i));
            mLibrary->trackBufferDecrement(layer(i), 0);
        }
    }
    if (mOptions.headroom) activateHeadroom();
    if (mOptions.threads == LibraryThreads::kHeadroom) {
        waitUntil([&] { return threads::idleCount() > idleBefore; }, "no headroom thread");
        threads::skipTimers(true);
    }
    if (!all || !mOptions.floorThread) return;
    using floor::Waiter;
    mWaiter = mOptions.frameRegulator ? std::make_unique<Waiter>(Waiter::On::kState, kPeriodNs)
                                      : std::make_unique<Waiter>(Waiter::On::kVsync, 0);
}

void Scene::activateHeadroom() {
    constexpr int kAccumulating = 31;
    for (int i = 0; i < kAccumulating; ++i) mLibrary->trackBufferDecrement(layer(0), 1);
    mLibrary->trackBufferDecrement(layer(0), 0);  // nothing pending any more
}

void Scene::keepMeasuring() {
    if (!mOptions.environment || nowNs() - mMeasuringSince < 700'000'000) return;
    std::this_thread::sleep_for(milliseconds(151));  // ends a measuring period without closing it
    for (int frame = 0; frame < 5; ++frame) {        // and what the pause has set off is over
        if (mOptions.threads == LibraryThreads::kHeadroom) release();
        mLibrary->trackBufferIncrement(layer(mOptions.trackers - 1));
        std::this_thread::sleep_for(milliseconds(1));
    }
    mMeasuringSince = nowNs();
}

void Scene::release() {
    const int before = threads::idleCount();
    mLibrary->trackVsyncSignal();
    for (int polls = 0; threads::idleCount() == before; ++polls) {
        if (polls > 1'000'000) throw std::runtime_error("the headroom thread does not release");
        sched_yield();
    }
}

}  // namespace bench
