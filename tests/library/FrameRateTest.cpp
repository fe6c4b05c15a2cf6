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
    int64_t last = 0;
    Scene scene;
    scene.set("vendor.perf.pfar2.hgpe.enable", "1");
    play(scene, [&](Compositor& compositor) {
        compositor.start(kGame);
        standin::Device::instance().clearEvents();
        last = compositor.playUntilEnvironment(kGame);
    });
    std::vector<Sight> expected;
    for (const char* call : {
                 "get_perf_hal_ver() = 2.3",
                 R"(perf_get_prop("vendor.perf.pfar2.boost_level", "1") = "1")",
                 R"(perf_get_prop("vendor.perf.pfar2.disable_pl", "1") = "1")",
                 R"(perf_get_prop("vendor.perf.pfar2.disable_core_ctl", "1") = "1")",
                 R"(perf_get_prop("vendor.perf.pfar2.hgpe.enable", "0") = "1")",
                 R"(perf_get_prop("vendor.perf.pfar2.hgpe.max_rendertime", "0") = "0")",
                 R"(perf_get_prop("vendor.perf.pfar2.hgpe.max_neboost", "0") = "0")",
                 R"(perf_get_feedback_extn(5633, "com.example.game", 2, {1, 0}) = 1)",
                 R"(perf_get_prop("vendor.perf.phr.hr_min_rate", "0.500000") = "0.500000")",
         }) {
        expected.push_back({last, call});
    }
    EXPECT_EQ(serviceCalls(), expected);
    EXPECT_EQ(timeOf(rateLine("60.00")), last);
}

TEST(FrameRate, MeasuringPeriod_ClosesWithTheFirstFrameAfterMoreThanASecond) {
    // Frames of exactly 20 ms: the frame at one second is still inside, the next one closes.
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t first = Compositor::now();
        compositor.play(kGame, 60, 20 * kMs);
        // The first interval opens the period at the second frame.
        EXPECT_EQ(timeOf(rateLine("50.00")), first + 20 * kMs + kSecond + 20 * kMs);
    });
}

TEST(FrameRate, FrameThatOpensAPeriod_CountsItsOwnInterval) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.play(kGame, 1, 100 * kMs);
        compositor.play(kGame, 53, 20 * kMs);
        EXPECT_EQ(countOf(rateLine("46.43")), 1);  // 52 frames in 100 ms and 51 times 20 ms
    });
}

TEST(FrameRate, PauseOf150ms_StartsTheMeasurementOver) {
    for (const int64_t pause : {int64_t{149'999'999}, 150 * kMs}) {
        play(Scene(), [&](Compositor& compositor) {
            compositor.start(kGame);
            compositor.play(kGame, 40);
            Compositor::waitUntil(Compositor::now() - kPeriod60 + pause);
            const int64_t resumed = Compositor::now();
            compositor.play(kGame, 70);
            if (pause < 150 * kMs) {
                EXPECT_EQ(countOf(rateLine("60.00")), 0) << "the pause is one of the frames";
            } else {
                // One interval opens the period, and 60 make more than a second.
                EXPECT_EQ(timeOf(rateLine("60.00")), resumed + kPeriod60 + 60 * kPeriod60);
            }
        });
    }
}

TEST(FrameRate, AfterAPause_TheLayerHasNoRateUntilAPeriodCloses) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        Compositor::waitUntil(Compositor::now() + 150 * kMs);
        compositor.queue(kGame);
        for (int i = 0; i < 40; ++i) compositor.consume(kGame, 1);
        EXPECT_EQ(countOf("enable PHR"), 0);
        EXPECT_EQ(countOf("enable FrameRegulator"), 0) << "headroom alone has no frame regulator";
    });
}

TEST(FrameRate, RateOfAnotherClass_SwitchesBothRegulatorsOff) {
    for (const bool frameRegulator : {true, false}) {
        play(frameRegulator ? Scene() : Scene().headroomOnly(), [&](Compositor& compositor) {
            compositor.start(kGame);
            compositor.playUntilEnvironment(kGame);
            for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
            compositor.consume(kGame, 0);
            EXPECT_EQ(countOf("enable PHR"), 1);
            int64_t queued = 0;
            for (int i = 0; i < 40 && countOf("disable PHR") == 0; ++i) {
                queued = Compositor::now() + 40 * kMs;
                Compositor::waitUntil(queued);
                compositor.queue(kGame);
            }
            // Measured before it is held, so the frame that ends the pacing is not.
            EXPECT_EQ(timeOf("disable PHR"), queued);
            EXPECT_EQ(Compositor::now(), queued);
            EXPECT_EQ(timesOf(kOff),
                      frameRegulator ? std::vector<int64_t>{queued} : std::vector<int64_t>{});
            for (int i = 0; i < 40; ++i) compositor.consume(kGame, 1);
            EXPECT_EQ(countOf("enable PHR"), 1) << "not at another rate than the display's";
        });
    }
}

TEST(FrameRate, UnexpectedVsyncPeriod_LeavesNothingToMatch) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        compositor.library.setVsyncPeriod(18 * kMs);
        compositor.play(kGame, 64);
        EXPECT_EQ(countOf(rateLine("60.00")), 2);
        EXPECT_EQ(countOf(kOff), 1);
    });
}

TEST(FrameRate, NonGameOnAFastDisplay_GetsNoThreads) {
    struct Case {
        int64_t period;
        int weight;
        size_t threads;  // the library's own, beside the checker
    };
    const Case cases[] = {
            {kPeriod90, 0, 0}, {kPeriod90, 1, 3}, {kPeriod60, 0, 3}, {kPeriod90, -1, 3}};
    for (const Case& c : cases) {
        Scene scene;
        scene.weights["com.example.game"] = c.weight;
        const sim::Outcome outcome = play(scene, [&](Compositor& compositor) {
            compositor.start(kGame, c.period);
            compositor.playUntilEnvironment(kGame, c.period);
        });
        EXPECT_EQ(outcome.threads.size() - 2, c.threads) << c.period << " weight " << c.weight;
        EXPECT_EQ(countOf("~BufferLayerTracker"), c.threads > 0 ? 1 : 0);
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
    struct Case {
        int failing;
        const char* line;
    };
    // After the checker: the monitor, the boost thread, the headroom thread.
    const Case cases[] = {{2, "MonitorThread Creation Failed"},
                          {3, "BoostThread Creation Failed"},
                          {4, "HeadroomThread Creation Failed"}};
    for (const Case& c : cases) {
        Scene scene;
        scene.schedule.failThreadCreation = c.failing;
        const sim::Outcome outcome = play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.playUntilEnvironment(kGame);
            compositor.play(kGame, 10, kPeriod60, 1);
        });
        EXPECT_EQ(countOf(c.line), 1);
        EXPECT_EQ(outcome.threads.size(), 4U);
    }
}
