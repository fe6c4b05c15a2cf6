#include "bench/Paths.h"

#include <chrono>
#include <thread>

namespace bench {
namespace {

void release(Scene& scene) {
    scene.release();
}

// A late frame lowers the threshold and raises the headroom, so that the next one, which is early,
// moves both back.
void releaseAfterLateFrame(Scene& scene) {
    scene.keepMeasuring();
    scene.release();
    std::this_thread::sleep_for(std::chrono::nanoseconds(kPeriodNs) + std::chrono::milliseconds(3));
    scene.library().trackBufferIncrement(Scene::layer(0));
    scene.release();
}

SceneOptions tracked(int trackers) {
    SceneOptions options;
    options.trackers = trackers;
    return options;
}

SceneOptions regulated(bool frameRegulator, bool headroom, bool power, LibraryThreads threads) {
    SceneOptions options = tracked(1);
    options.frameRegulator = frameRegulator;
    options.headroom = headroom;
    options.power = power;
    options.environment = true;
    options.threads = threads;
    return options;
}

SceneOptions inactive() {
    SceneOptions options;
    options.initialised = false;
    return options;
}

SceneOptions holding() {
    SceneOptions options = regulated(true, true, false, LibraryThreads::kNone);
    options.trackers = 2;
    return options;
}

const char* const kGame = Scene::layer(0);
const char* const kFirstIgnored = Scene::ignoredLayer(0);
const char* const kLastIgnored = Scene::ignoredLayer(Scene::kIgnoredLayers - 1);

template <typename Function, typename... Arguments>
void repeat(int times, Function* function, Arguments... arguments) {
    for (int i = 0; i < times; ++i) function(arguments...);
}

}  // namespace

void callLibrary(Scene& scene, const Path& path, int times) {
    const device::CindralLibrary& library = scene.library();
    switch (path.entry) {
        case EntryPoint::kIncrement:
            return repeat(times, library.trackBufferIncrement, path.layer);
        case EntryPoint::kDecrement:
            return repeat(times, library.trackBufferDecrement, path.layer, 0);
        case EntryPoint::kVsync:
            return repeat(times, library.trackVsyncSignal);
        case EntryPoint::kSetPeriod:
            return repeat(times, library.setVsyncPeriod, kPeriodNs);
    }
}

void callFloor(floor::Floor floor, const Path& path, int times) {
    repeat(times, floor, path.layer);
}

std::vector<Stage> quietStages() {
    using namespace floor;
    using Threads = LibraryThreads;
    using Entry = EntryPoint;
    constexpr auto kIncrement = Entry::kIncrement;
    constexpr auto kDecrement = Entry::kDecrement;
    return {
            {inactive(),
             {{"inactive_increment", kIncrement, kGame, nothing},
              {"inactive_decrement", kDecrement, kGame, nothing},
              {"inactive_vsync", Entry::kVsync, nullptr, nothing},
              {"inactive_set_period", Entry::kSetPeriod, nullptr, nothing}}},
            {tracked(0),
             {{"increment_ignored_first", kIncrement, kFirstIgnored, layerLock, layerLockNamed},
              {"increment_ignored_last", kIncrement, kLastIgnored, layerLock, layerLockNamed},
              {"vsync_no_tracker", Entry::kVsync, nullptr, vsync},
              {"set_period_no_tracker", Entry::kSetPeriod, nullptr, layerLock}}},
            {tracked(1),
             {{"increment_measuring", kIncrement, kGame, increment, incrementNamed},
              {"decrement_measuring", kDecrement, kGame, decrement, decrementNamed},
              {"vsync_one_tracker", Entry::kVsync, nullptr, vsync},
              {"set_period_one_tracker", Entry::kSetPeriod, nullptr, layerLock}}},
            {tracked(2),
             {{"vsync_two_trackers", Entry::kVsync, nullptr, vsync},
              {"set_period_two_trackers", Entry::kSetPeriod, nullptr, layerLock}}},
            {regulated(true, false, false, Threads::kNone),
             {{"increment_frame_regulator", kIncrement, kGame, incrementWatched,
               incrementWatchedNamed},
              {"decrement_frame_regulator", kDecrement, kGame, decrement, decrementNamed}}},
            {regulated(false, true, false, Threads::kHeadroom),
             {{"increment_headroom_released", kIncrement, kGame, increment, incrementNamed,
               release}}},
            {regulated(true, true, true, Threads::kHeadroom),
             {{"increment_both_and_power", kIncrement, kGame, incrementPowered,
               incrementPoweredNamed, release},
              {"decrement_both_and_power", kDecrement, kGame, decrement, decrementNamed}}},
            {regulated(true, true, false, Threads::kNone),
             {{"vsync_active", Entry::kVsync, nullptr, vsyncActive}}},
    };
}

std::vector<Stage> countedStages() {
    std::vector<Stage> stages = quietStages();
    stages.push_back(
            {regulated(true, true, true, LibraryThreads::kHeadroom),
             {{"increment_that_adjusts", EntryPoint::kIncrement, kGame, floor::incrementPowered,
               floor::incrementPoweredNamed, releaseAfterLateFrame}}});
    return stages;
}

std::vector<Stage> wakingStages() {
    using namespace floor;
    using Threads = LibraryThreads;
    return {
            {regulated(true, false, false, Threads::kAll),
             {{"increment_wakes_monitor", EntryPoint::kIncrement, kGame, incrementWatched,
               incrementWatchedNamed}}},
            {regulated(false, true, false, Threads::kAll),
             {{"vsync_wakes_headroom", EntryPoint::kVsync, nullptr, vsyncActive}}},
    };
}

std::vector<Stage> contendedStages() {
    using namespace floor;
    return {
            {holding(),
             {{"", EntryPoint::kIncrement, Scene::layer(1), incrementWatched,
               incrementWatchedNamed}}},
            {tracked(2), {{"", EntryPoint::kIncrement, kGame, increment, incrementNamed}}},
    };
}

}  // namespace bench
