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

// Not initialised, so many layers tracked, or one with these: frame regulator, headroom, power, and
// whether the headroom thread runs.
constexpr SceneOptions kInactive{false};

constexpr SceneOptions tracked(int trackers) {
    return {true, trackers};
}

constexpr SceneOptions regulated(bool frame, bool headroom, bool power, bool headroomThread) {
    return {true, 1, frame, headroom, power, headroomThread};
}

template <typename Function, typename... Arguments>
void repeat(int times, Function* function, Arguments... arguments) {
    for (int i = 0; i < times; ++i) function(arguments...);
}

}  // namespace

void callLibrary(const Scene& scene, const Path& path, int times) {
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

void callFloor(const Path& path, bool named, int times) {
    repeat(times, floor::floorOf(path.floor, named), path.layer);
}

std::vector<Stage> stages() {
    using Floor = floor::Sequence;
    constexpr auto kIncrement = EntryPoint::kIncrement;
    constexpr auto kDecrement = EntryPoint::kDecrement;
    constexpr auto kVsync = EntryPoint::kVsync;
    constexpr auto kSetPeriod = EntryPoint::kSetPeriod;
    const char* const game = Scene::layer(0);
    const char* const first = Scene::ignoredLayer(0);
    const char* const last = Scene::ignoredLayer(Scene::kIgnoredLayers - 1);
    return {
            {"inactive",
             kInactive,
             {{"inactive_increment", kIncrement, game, Floor::kNothing},
              {"inactive_decrement", kDecrement, game, Floor::kNothing},
              {"inactive_vsync", kVsync, nullptr, Floor::kNothing},
              {"inactive_set_period", kSetPeriod, nullptr, Floor::kNothing}}},
            {"initialised",
             tracked(0),
             {{"increment_ignored_first", kIncrement, first, Floor::kLayerLock},
              {"increment_ignored_last", kIncrement, last, Floor::kLayerLock},
              {"vsync_no_tracker", kVsync, nullptr, Floor::kVsync},
              {"set_period_no_tracker", kSetPeriod, nullptr, Floor::kLayerLock}}},
            {"one_measuring",
             tracked(1),
             {{"increment_measuring", kIncrement, game, Floor::kMeasure},
              {"decrement_measuring", kDecrement, game, Floor::kDecrement},
              {"vsync_one_tracker", kVsync, nullptr, Floor::kVsync},
              {"set_period_one_tracker", kSetPeriod, nullptr, Floor::kLayerLock}}},
            {"two_measuring",
             tracked(2),
             {{"vsync_two_trackers", kVsync, nullptr, Floor::kVsync},
              {"set_period_two_trackers", kSetPeriod, nullptr, Floor::kLayerLock}}},
            {"frame_regulator",
             regulated(true, false, false, false),
             {{"increment_frame_regulator", kIncrement, game, Floor::kWatch},
              {"decrement_frame_regulator", kDecrement, game, Floor::kDecrement}}},
            {"headroom_regulator",
             regulated(false, true, false, true),
             {{"increment_headroom_released", kIncrement, game, Floor::kMeasure, release}}},
            {"both_and_power",
             regulated(true, true, true, true),
             {{"increment_both_and_power", kIncrement, game, Floor::kWatchAndPower, release},
              {"decrement_both_and_power", kDecrement, game, Floor::kDecrement}}},
            {"both_regulators",
             regulated(true, true, false, false),
             {{"vsync_active", kVsync, nullptr, Floor::kVsyncActive}}},
            {"both_and_power_adjusting",
             regulated(true, true, true, true),
             {{"increment_that_adjusts", kIncrement, game, Floor::kWatchAndPower,
               releaseAfterLateFrame, false}}},
    };
}

}  // namespace bench
