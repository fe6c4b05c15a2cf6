// What no call of a steady state may do, on the library that ships with its real threads.

#include <gtest/gtest.h>
#include <sched.h>

#include <chrono>
#include <memory>
#include <thread>

#include "bench/Paths.h"
#include "tests/performance/Probes.h"

namespace {

using bench::Path;
using bench::Scene;
using bench::Stage;

using Names = std::vector<std::string>;

void callPrepared(Scene& scene, const Path& path) {
    if (path.prepare != nullptr) path.prepare(scene);
    callLibrary(scene, path, 1);
}

// A second and a half of a 60 Hz game: measuring periods close, power optimisation is evaluated,
// producers are held and released, energy is scaled.
void playInRealTime(Scene& scene, int trackers) {
    constexpr int kFrames = 90;
    const auto start = std::chrono::steady_clock::now();
    for (int frame = 0; frame < kFrames; ++frame) {
        std::this_thread::sleep_until(start + frame * std::chrono::nanoseconds(bench::kPeriodNs));
        scene.library().trackVsyncSignal();
        for (int i = 0; i < trackers; ++i) {
            scene.library().trackBufferIncrement(Scene::layer(i));
            scene.library().trackBufferDecrement(Scene::layer(i), frame % 2);
        }
    }
}

}  // namespace

TEST(SteadyState, CallsOfTrackedAndIgnoredLayers_AllocateNothing) {
    for (const Stage& stage : bench::quietStages()) {
        Scene scene(stage.options);
        for (const Path& path : stage.paths) {
            callPrepared(scene, path);
            probes::watchAllocations();
            for (int i = 0; i < 100; ++i) callPrepared(scene, path);
            EXPECT_EQ(probes::allocations(), Names()) << path.name;
        }
    }
}

TEST(SteadyState, GameWithBothRegulatorsAndPower_AllocatesNothingOnAnyThread) {
    bench::SceneOptions options;
    options.headroom = options.power = options.environment = true;
    options.trackers = 1;
    options.threads = bench::LibraryThreads::kAll;
    Scene scene(options);
    probes::watchAllocations();
    playInRealTime(scene, options.trackers);
    EXPECT_EQ(probes::allocations(), Names());
}

// The same probe, where the library does allocate: a layer's classification copies its name.
TEST(SteadyState, LayerSeenForTheFirstTime_AllocatesAndTheProbeSeesIt) {
    Scene scene({});
    probes::watchAllocations();
    scene.library().trackBufferIncrement(
            "a layer of no application, with a name beyond 15 letters");
    EXPECT_NE(probes::allocations(), Names());
}

TEST(SteadyState, CallsThatWakeNobody_NeverEnterTheKernel) {
    if (!probes::canWatchSystemCalls()) GTEST_SKIP() << "needs Linux 5.11 on x86";
    EXPECT_EQ(probes::systemCalls([] { sched_yield(); }).size(), 1U) << "the probe sees nothing";
    for (const Stage& stage : bench::quietStages()) {
        const auto scene = std::make_unique<Scene>(stage.options);
        for (const Path& path : stage.paths) {
            for (int i = 0; i < 100; ++i) {
                if (path.prepare != nullptr) path.prepare(*scene);
                const auto calls = probes::systemCalls([&] { callLibrary(*scene, path, 1); });
                EXPECT_EQ(calls, std::vector<int>()) << path.name;
            }
        }
    }
}
