// The frame regulator: hints at missed deadlines, releases, and when it goes on and off.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

namespace {

constexpr char kOn[] = "enable FrameRegulator";
constexpr char kOff[] = "disable FrameRegulator";
constexpr char kCheckpoint1[] = "CHECKPOINT1_NOT_QUEUED";
constexpr char kCheckpoint2[] = "CHECKPOINT2_NOT_QUEUED";
constexpr char kCheckpoint3[] = "CHECKPOINT3_NOT_QUEUED";
constexpr char kAccumulated[] = "additonal wait for accumulated buffer";
constexpr int64_t kSpacing60 = 8'333'333;

using Expectations = std::vector<std::string>;

// A game with the frame regulator alone, from its last buffer before the environment on.
void playWatched(const std::function<void(Compositor&, int64_t last)>& body,
                 int64_t period = kPeriod60) {
    playGame(Scene().frameRegulatorOnly(), body, period);
}

Expectations expectations() {
    return markersOf({"mBoostExpectationDegree = "});
}

}  // namespace

TEST(Monitor, LayerStopsQueueing_SendsThreeHintsAtTheirDeadlinesAndGoesOff) {
    struct Display {
        int64_t period;
        int64_t spacing;  // of the checkpoints: half a period up to 60 Hz
        int pending;      // gives the layer another period
    };
    std::vector<Display> displays;
    for (const int64_t period : kPeriods) {
        const int64_t spacing = period == kPeriod60 ? kSpacing60 : period;
        for (const int pending : {0, 1}) displays.push_back({period, spacing, pending});
    }
    for (const Display& display : displays) {
        SCOPED_TRACE(display.period);
        playWatched(
                [&](Compositor& compositor, int64_t last) {
                    compositor.consume(kGame, display.pending);
                    Compositor::waitUntil(last + 3 * kSecond);
                    const int64_t first = last + display.period * (1 + display.pending);
                    const int64_t second = first + display.spacing;
                    const int64_t third = second + display.spacing;
                    EXPECT_EQ(timeOf(kOn), last);
                    EXPECT_EQ(countOf(kAccumulated), display.pending);
                    EXPECT_EQ(timeOf(kCheckpoint1), first);
                    EXPECT_EQ(timeOf("skip boost"), first);
                    EXPECT_EQ(timeOf(kCheckpoint2), second);
                    EXPECT_EQ(timeOf(kCheckpoint3), third);
                    EXPECT_EQ(timeOf(kOff), third + kSecond);
                    EXPECT_EQ(boosts(),
                              (std::vector<Sight>{{second, "16/2000"}, {third, "1000/10000"}}));
                },
                display.period);
    }
}

TEST(Monitor, BufferBetweenTheCheckpoints_EndsTheEscalationAndStartsANewWatch) {
    playWatched([](Compositor& compositor, int64_t last) {
        const int64_t next = compositor.queueAt(last + kPeriod60 + 3 * kMs);
        Compositor::waitUntil(next + kPeriod60 + 10 * kMs);
        EXPECT_EQ(timesOf(kCheckpoint1),
                  (std::vector<int64_t>{last + kPeriod60, next + kPeriod60}));
        EXPECT_EQ(timeOf(kCheckpoint2), next + kPeriod60 + kSpacing60);
        // The first one stayed late after its hint, so the mildest boost is sent from then on.
        EXPECT_EQ(boosts(), (std::vector<Sight>{{next + kPeriod60, "8/1500"},
                                                {next + kPeriod60 + kSpacing60, "16/2000"}}));
    });
}

TEST(Monitor, BufferWhileOthersArePending_EndsTheAdditionalWait) {
    playWatched([](Compositor& compositor, int64_t last) {
        compositor.consume(kGame, 1);
        Compositor::waitUntil(last + kPeriod60 + 5 * kMs);
        EXPECT_EQ(countOf(kAccumulated), 1);
        EXPECT_EQ(countOf("fast frame"), 0);
        compositor.queue(kGame);
        compositor.queueAt(last + kPeriod60 + 10 * kMs);
        Compositor::waitUntil(last + 2 * kPeriod60 + kMs);
        EXPECT_EQ(countOf(kCheckpoint1), 0);
        EXPECT_EQ(countOf("fast frame"), 1);
    });
}

TEST(Monitor, BufferAfterTheLastCheckpoint_TakesTheLongBoostBackAndKeepsTheRegulatorOn) {
    playWatched([](Compositor& compositor, int64_t last) {
        const int64_t back = compositor.queueAt(last + 500 * kMs);
        Compositor::waitUntil(back + 10 * kMs);
        EXPECT_EQ(countOf(kOff), 0);
        ASSERT_EQ(boosts().size(), 3U);
        EXPECT_EQ(boosts()[2], (Sight{back, "0/0"}));
    });
    EXPECT_EQ(boosts().size(), 4U)
            << "the stop wakes the boost thread, which serves the request again";
}

TEST(Monitor, BufferAfterAShortBoost_TakesItBackOnlyIfItIsStillBeingSent) {
    for (const int64_t hintTakes : {int64_t{0}, 3 * kMs}) {
        playWatched([&](Compositor& compositor, int64_t last) {
            device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfHint, hintTakes);
            // The second hint goes out half a period after the first deadline.
            const int64_t queued = last + kPeriod60 + 9 * kMs;
            EXPECT_EQ(compositor.queueAt(queued), queued) << "the service holds no producer";
            Compositor::waitUntil(queued + 6 * kMs);
            const int64_t hint = last + kPeriod60 + kSpacing60;
            std::vector<Sight> expected = {{hint, "16/2000"}};
            if (hintTakes > 0) expected.push_back({hint + hintTakes, "0/0"});
            EXPECT_EQ(boosts(), expected);
        });
    }
}

TEST(Monitor, ExpectationAfterAHint_FollowsOnceHowLateTheFrameWasForItsDisplay) {
    const std::pair<int64_t, Expectations> cases[] = {
            {2'000'001, {"mBoostExpectationDegree = 1"}},
            {2'000'000, {}},
            {1'000'000, {}},
            {999'999, {"mBoostExpectationDegree = -1"}},
            {1, {"mBoostExpectationDegree = -1"}},
    };
    for (const int64_t period : kPeriods) {
        for (const auto& [late, expected] : cases) {
            playWatched(
                    [&, late = late](Compositor& compositor, int64_t last) {
                        const int64_t next = compositor.queueAt(last + period + late);
                        for (int i = 1; i <= 3; ++i) compositor.queueAt(next + i * kMs);
                    },
                    period);
            EXPECT_EQ(expectations(), expected) << late << " at " << period;
        }
    }
}

TEST(Monitor, HeldBuffer_CountsAsComeAtItsQueueAndIsNotWatchedWhileHeld) {
    playGame(Scene(), [](Compositor& compositor, int64_t last) {
        compositor.startPacing();
        const int64_t queued = last + 5 * kMs;
        EXPECT_EQ(compositor.queueAt(queued), queued + kPeriod60) << "no vsync releases it";
        EXPECT_EQ(timeOf("fast frame"), queued);
        Compositor::waitUntil(queued + 3 * kPeriod60);
        EXPECT_EQ(timeOf(kCheckpoint1), queued + 2 * kPeriod60);
    });
}

TEST(Monitor, Stutter_ForgetsThatFramesCameByThemselvesButOnlyWhileTheRegulatorIsOn) {
    for (const int64_t period : kPeriods) {
        playWatched(
                [&](Compositor& compositor, int64_t last) {
                    compositor.consume(kGame);
                    const int64_t time = compositor.queueAt(last + period + 1);
                    compositor.consume(kGame);
                    // More than one and a half periods after the last one.
                    Compositor::waitUntil(time + period + period / 2 + 2);
                    compositor.consume(kGame);
                    compositor.queue(kGame);
                    Compositor::waitUntil(Compositor::now() + period + 3 * kMs);
                    compositor.consume(kGame);
                    compositor.queue(kGame);
                },
                period);
        EXPECT_EQ(expectations(),
                  (Expectations{"mBoostExpectationDegree = -1", "mBoostExpectationDegree = 1",
                                "mBoostExpectationDegree = 2"}))
                << "up from 0, not from -1; a positive expectation is kept";
    }

    playWatched([](Compositor& compositor, int64_t last) {
        Compositor::waitUntil(compositor.queueAt(last + kPeriod60 + 1) + 2 * kSecond);
        EXPECT_EQ(countOf(kOff), 1);
        compositor.consume(kGame, 0, 2);
        int64_t time = Compositor::now();
        while (countOf(kOn) == 1) time = compositor.queueAt(time + kPeriod60);
        compositor.queueAt(time + kPeriod60 + 3 * kMs);
    });
    EXPECT_EQ(expectations(),
              (Expectations{"mBoostExpectationDegree = -1", "mBoostExpectationDegree = 0"}));
}

TEST(Monitor, BoostLevel_HoldsBackTheCheckpointsBelowIt) {
    playGame(Scene().frameRegulatorOnly().set("vendor.perf.pfar2.boost_level", "3"),
             [](Compositor&, int64_t last) {
                 Compositor::waitUntil(last + kSecond);
                 EXPECT_EQ(countOf(kCheckpoint2), 1);
             });
    ASSERT_EQ(boosts().size(), 1U);
    EXPECT_EQ(boosts()[0].what, "1000/10000");
    EXPECT_EQ(countOf("skip boost"), 0);
}

TEST(Monitor, ThreadsAreRealTimeAndNamedOnlyWhileDebugging) {
    for (const bool debugging : {true, false}) {
        const sim::Outcome outcome =
                playGame(Scene().set("vendor.perf.cindral.debug", debugging ? "1" : "0"),
                         [](Compositor&, int64_t) {});
        std::vector<std::string> names;
        for (const sim::ThreadRecord& thread : outcome.threads) {
            if (thread.policy != SCHED_FIFO) continue;
            names.push_back(thread.name);
            EXPECT_EQ(thread.nice, -8);
            EXPECT_EQ(thread.priority, 1);
        }
        const std::vector<std::string> wanted = {"BLT", "BP", "PHR"};
        EXPECT_EQ(names, debugging ? wanted : std::vector<std::string>(3));
    }
    for (const Sight& line : logs()) EXPECT_EQ(line.what[0], 'E') << line.what;
    EXPECT_TRUE(markers().empty());
}
