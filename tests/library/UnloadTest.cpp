// What an unload waits for, and that it leaves no mapping behind.

#include <gtest/gtest.h>

#include "device/Process.h"
#include "tests/library/Compositor.h"

using device::EntryPoint;
using device::isMapped;

// Closing the service's libraries takes the loader's lock, which the unload holds while it waits for
// the checker. A checker that closed them would hang the process, and this test with it.
TEST(Unload, WhileTheCheckersVerdictRetiresATracker_TheUnloadClosesItsLibraries) {
    play(Scene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        compositor.start(kOtherGame);
        device::StandInDevice::instance().setDelay(EntryPoint::kPerfGetFeedback, 2 * kSecond);
        compositor.queue(kThirdGame);
    });
    EXPECT_EQ(countOf("~BufferLayerTracker"), 1);
    EXPECT_EQ(countOf("isGameLayer:1 [" + kThirdGame + "][com.example.third]"), 1);
    EXPECT_FALSE(isMapped("libcindral.so"));
}

TEST(Unload, WhileTheCheckerAsks_WaitsForItsAnswerAndClosesTheLibrariesOfItsClient) {
    for (const bool replaced : {false, true}) {
        play(Scene(), [&](Compositor& compositor) {
            device::StandInDevice::instance().setDelay(EntryPoint::kPerfGetFeedback, kSecond);
            compositor.library.init();
            compositor.queue(kGame);
            Compositor::waitUntil(kMs);
            if (replaced) compositor.library.clearConfigs();
            EXPECT_TRUE(compositor.library.init());
        });
        EXPECT_EQ(timeOf("isGameLayer:1 [" + kGame + "][com.example.game]"), kSecond);
        EXPECT_FALSE(isMapped("libcindral.so"));
        EXPECT_FALSE(isMapped("libskewknob_system.so"));
    }
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
