// Measuring the layer's rate, and what a match or a mismatch with the display sets going.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

namespace {

constexpr char kOff[] = "disable FrameRegulator";

std::string rateLine(const std::string& fps) {
    return "FPS:" + fps + "[" + kGame + "]";
}

}  // namespace

TEST(FrameRate, FirstMatchingPeriod_BuildsTheEnvironmentInOrder) {
    play(Scene().set("vendor.perf.pfar2.hgpe.enable", "1"), [&](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t last = compositor.playUntilEnvironment(kGame);
        EXPECT_EQ(timeOf(rateLine("60.00")), last);
        for (const auto& [time, call] : sightsOf({"boost_level", "hr_min_rate"}))
            EXPECT_EQ(time, last) << call;
    });
    const std::vector<std::string> expected = {
            // First it is decided what runs, and the layer found to be a game's.
            "get_perf_hal_ver() = 2.3",
            "IsFeatureEnabled(5) = 1",
            "IsFeatureEnabled(6) = 1",
            R"(perf_get_prop("vendor.perf.pfar.enable", "0") = "0")",
            R"(perf_get_prop("vendor.perf.phr.enable", "0") = "1")",
            R"(perf_get_prop("vendor.perf.cindral.debug", "0") = "1")",
            "IsFeatureEnabled(7) = 1",
            R"(perf_get_prop("vendor.perf.pfar2.enable", "0") = "1")",
            R"(perf_get_prop("ro.vendor.perf.zgpe", "true") = "true")",
            R"(perf_get_feedback(5633, "com.example.game") = 2)",
            "get_perf_hal_ver() = 2.3",
            R"(perf_get_prop("vendor.perf.pfar2.boost_level", "1") = "1")",
            R"(perf_get_prop("vendor.perf.pfar2.disable_pl", "1") = "1")",
            R"(perf_get_prop("vendor.perf.pfar2.disable_core_ctl", "1") = "1")",
            R"(perf_get_prop("vendor.perf.pfar2.hgpe.enable", "0") = "1")",
            R"(perf_get_prop("vendor.perf.pfar2.hgpe.max_rendertime", "0") = "0")",
            R"(perf_get_prop("vendor.perf.pfar2.hgpe.max_neboost", "0") = "0")",
            R"(perf_get_feedback_extn(5633, "com.example.game", 2, {1, 0}) = 1)",
            R"(perf_get_prop("vendor.perf.phr.hr_min_rate", "0.500000") = "0.500000")",
    };
    EXPECT_EQ(linesOf({"perf_", "IsFeatureEnabled"}), expected);
}

TEST(FrameRate, MeasuringPeriod_CountsTheFrameThatOpensItAndClosesAfterMoreThanASecond) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t opened = Compositor::now() + 100 * kMs;
        compositor.play(kGame, 1, 100 * kMs);
        compositor.play(kGame, 53, 20 * kMs);
        // 52 frames in 100 ms and 51 times 20 ms: the one at a second is still inside.
        EXPECT_EQ(timeOf(rateLine("46.43")), opened + kSecond + 20 * kMs);
    });
}

TEST(FrameRate, PauseOf150ms_StartsTheMeasurementOverAndLeavesTheLayerWithoutARate) {
    for (const int64_t pause : {int64_t{149'999'999}, 150 * kMs}) {
        playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t last) {
            Compositor::waitUntil(last + kPeriod60);
            compositor.play(kGame, 40);
            Compositor::waitUntil(last + 40 * kPeriod60 + pause);
            const int64_t resumed = Compositor::now();
            compositor.queue(kGame);
            compositor.consume(kGame, 1, 40);
            const bool ended = pause == 150 * kMs;
            EXPECT_EQ(countOf("enable PHR"), ended ? 0 : 1);
            Compositor::waitUntil(resumed + kPeriod60);
            compositor.play(kGame, 70);
            // One interval opens the period, and 60 make more than a second.
            EXPECT_EQ(timesOf(rateLine("60.00")).back(),
                      ended ? resumed + kPeriod60 + 60 * kPeriod60 : last)
                    << "otherwise the pause is one of the frames";
        });
        EXPECT_EQ(countOf("enable FrameRegulator"), 0) << "headroom alone has no frame regulator";
    }
}

TEST(FrameRate, RateOfAnotherClass_SwitchesBothRegulatorsOff) {
    for (const bool both : {true, false}) {
        playGame(both ? Scene() : Scene().headroomOnly(), [&](Compositor& compositor, int64_t) {
            compositor.startPacing();
            EXPECT_EQ(countOf("enable PHR"), 1);
            int64_t queued = 0;
            for (int i = 0; i < 40 && countOf("disable PHR") == 0; ++i) {
                queued = Compositor::now() + 40 * kMs;
                compositor.queueAt(queued);
            }
            // Measured before it is held, so the frame that ends the pacing is not.
            EXPECT_EQ(timeOf("disable PHR"), queued);
            EXPECT_EQ(Compositor::now(), queued);
            EXPECT_EQ(timesOf(kOff), std::vector<int64_t>(both ? 1 : 0, queued));
            compositor.consume(kGame, 1, 40);
            EXPECT_EQ(countOf("enable PHR"), 1) << "not at another rate than the display's";
        });
    }
}

TEST(FrameRate, UnexpectedVsyncPeriod_LeavesNothingToMatch) {
    playGame(Scene(), [](Compositor& compositor, int64_t) {
        compositor.library.setVsyncPeriod(18 * kMs);
        compositor.play(kGame, 64);
        EXPECT_EQ(countOf(rateLine("60.00")), 2);
        EXPECT_EQ(countOf(kOff), 1);
    });
}

TEST(FrameRate, NonGameOnAFastDisplay_GetsNoThreads) {
    // With or without the library's own three threads, beside the compositor's and the checker.
    for (const auto& [period, weight, threads] : {std::tuple{kPeriod75, 0, 2U},
                                                  {kPeriod90, 1, 5U},
                                                  {kPeriod60, 0, 5U},
                                                  {kPeriod90, -1, 5U}}) {
        Scene scene;
        scene.weights["com.example.game"] = weight;
        const sim::Outcome outcome = playGame(scene, period, [](Compositor&, int64_t) {});
        EXPECT_EQ(outcome.threads.size(), threads) << period << " weight " << weight;
        EXPECT_EQ(countOf("~BufferLayerTracker"), threads > 2 ? 1 : 0);
    }
}

TEST(FrameRate, BeforeAnyVsyncPeriod_ARateOfNoClassCountsAsMatching) {
    play(Scene(), [](Compositor& compositor) {
        compositor.library.init();
        compositor.queue(kGame);
        Compositor::waitUntil(10 * kMs);
        compositor.play(kGame, 13, 100 * kMs);
        EXPECT_EQ(countOf(rateLine("10.00")), 1);
        EXPECT_EQ(countOf("enable FrameRegulator"), 1);
    });
}

TEST(FrameRate, ThreadsThatCannotBeMade_AreLoggedAndLeftOut) {
    const char* const lines[] = {"game checker thread create failed!",
                                 "MonitorThread Creation Failed", "BoostThread Creation Failed",
                                 "HeadroomThread Creation Failed"};
    for (int i = 0; i < 4; ++i) {
        Scene scene;
        scene.schedule.failThreadCreation = 1 + i;
        const sim::Outcome outcome = playGame(
                scene, [](Compositor& game, int64_t) { game.play(kGame, 10, kPeriod60, 1); });
        EXPECT_EQ(countOf(lines[i]), 1);
        EXPECT_EQ(outcome.threads.size(), i == 0 ? 5U : 4U) << "the next buffer finds a checker";
    }
}
