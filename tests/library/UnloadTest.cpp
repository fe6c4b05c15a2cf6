// Loading and unloading: no thread and no mapping may stay behind.

#include <gtest/gtest.h>

#include "device/Process.h"
#include "tests/library/Compositor.h"

using device::countThreads;
using device::isMapped;

TEST(Unload, HundredTimesLoadedAndUsed_LeavesNoThreadAndNoMapping) {
    const int threads = countThreads();
    for (int round = 0; round < 100; ++round) {
        Scene scene;
        scene.set("vendor.perf.pfar2.hgpe.enable", "1");
        // Unloaded in different states: measuring, watching, held, boosted, given up.
        const int64_t silence = (round % 20) * 70 * kMs;
        play(scene, [&](Compositor& compositor) {
            ASSERT_TRUE(isMapped("libcindral.so"));
            compositor.start(kGame);
            compositor.play(kGame, 40 + round, kPeriod60, 1);
            Compositor::waitUntil(Compositor::now() + silence);
        });
        ASSERT_FALSE(isMapped("libcindral.so")) << "round " << round;
        ASSERT_FALSE(isMapped("libskewknob_system.so")) << "round " << round;
    }
    EXPECT_EQ(countThreads(), threads);
}

TEST(Unload, WithTheCheckerAsking_WaitsForItsAnswer) {
    play(Scene(), [&](Compositor& compositor) {
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedback, kSecond);
        compositor.library.init();
        compositor.queue(kGame);
    });
    EXPECT_EQ(timeOf("isGameLayer:1 [" + kGame + "][com.example.game]"), kSecond);
    EXPECT_FALSE(isMapped("libcindral.so"));
}

// Closing the service's libraries takes the loader's lock, which the unload holds while it waits for
// the checker. A checker that closed them would hang the process, and this test with it.
TEST(Unload, WhileTheCheckersVerdictRetiresATracker_TheUnloadClosesItsLibraries) {
    play(Scene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        compositor.start(kOtherGame);
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedback,
                                                   2 * kSecond);
        compositor.queue(kThirdGame);
    });
    EXPECT_EQ(countOf("~BufferLayerTracker"), 1);
    EXPECT_EQ(countOf("isGameLayer:1 [" + kThirdGame + "][com.example.third]"), 1);
    EXPECT_FALSE(isMapped("libcindral.so"));
}

TEST(Unload, WhileTheCheckerAsksAClientThatWasReplaced_TheUnloadClosesItsLibraries) {
    play(Scene(), [&](Compositor& compositor) {
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedback, kSecond);
        compositor.library.init();
        compositor.queue(kGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        compositor.library.clearConfigs();
        EXPECT_TRUE(compositor.library.init());
    });
    EXPECT_EQ(countOf("isGameLayer:1 [" + kGame + "][com.example.game]"), 1);
    EXPECT_FALSE(isMapped("libcindral.so"));
    EXPECT_FALSE(isMapped("libskewknob_system.so"));
}

// The stop's signal then finds nobody waiting.
TEST(Unload, InTheMomentAWaitOfTheMonitorRunsOut_IsOverAtOnceAndSendsNothing) {
    constexpr int64_t kSpacing = 8'333'333;
    for (const int64_t silence : {kPeriod60, kPeriod60 + kSpacing, kPeriod60 + 2 * kSpacing,
                                  kPeriod60 + 2 * kSpacing + kSecond}) {
        int64_t stopped = 0;
        size_t sent = 0;
        const sim::Outcome outcome =
                play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
                    compositor.start(kGame);
                    stopped = compositor.playUntilEnvironment(kGame) + silence;
                    Compositor::waitUntil(stopped);
                    stopped = sim::now();
                    sent = boosts().size();
                });
        EXPECT_EQ(outcome.endTimeNs, stopped) << silence;
        EXPECT_LE(boosts().size(), sent + 1) << silence << ": the release that the stop serves";
    }
}

TEST(Unload, WithRealThreads_LeavesNothingBehindEither) {
    device::StandInDevice& device = device::StandInDevice::instance();
    device.reset();
    device.setKnob(6, 1);
    device.setProperty("vendor.perf.phr.enable", "1");
    const int threads = countThreads();
    for (int round = 0; round < 100; ++round) {
        const device::ServiceLibraries services;
        device::CindralLibrary library;
        ASSERT_TRUE(library.init());
        library.setVsyncPeriod(kPeriod60);
        for (int i = 0; i < 20; ++i) {
            library.trackBufferIncrement(kGame.c_str());
            library.trackVsyncSignal();
            library.trackBufferDecrement(kGame.c_str(), 1);
        }
    }
    EXPECT_EQ(device.events().size() % 100, 0U) << "every round asked the same questions";
    EXPECT_FALSE(isMapped("libcindral.so"));
    EXPECT_LE(countThreads(), threads + 1) << "the last checker may still be on its way out";
}
