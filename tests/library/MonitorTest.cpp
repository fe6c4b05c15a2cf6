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

using Degrees = std::vector<int>;

// A game with the frame regulator alone, from its last buffer before the environment on.
void playWatched(int64_t period, const GameScene& body) {
    playGame(Scene().frameRegulatorOnly(), period, body);
}

void playWatched(const GameScene& body) {
    playWatched(kPeriod60, body);
}

Degrees expectations() {
    Degrees degrees;
    for (const std::string& line : linesOf({"mBoostExpectationDegree = "}))
        degrees.push_back(std::stoi(line.substr(line.rfind(' '))));
    return degrees;
}

}  // namespace

TEST(Monitor, LayerStopsQueueing_SendsThreeHintsAtTheirDeadlinesAndGoesOff) {
    const auto fallSilent = [](int64_t period, int pending) {
        playWatched(period, [&](Compositor& compositor, int64_t last) {
            compositor.consume(kGame, pending);
            Compositor::waitUntil(last + 3 * kSecond);
            // Slow displays have room for two checkpoints in a period.
            const int64_t spacing = period == kPeriod60 ? kSpacing60 : period;
            const int64_t first = last + period * (1 + pending);
            const int64_t second = first + spacing;
            const int64_t third = second + spacing;
            EXPECT_EQ(timeOf(kOn), last);
            EXPECT_EQ(countOf(kAccumulated), pending);
            EXPECT_EQ(timeOf(kCheckpoint1), first);
            EXPECT_EQ(timeOf("skip boost"), first);
            EXPECT_EQ(timeOf(kCheckpoint2), second);
            EXPECT_EQ(timeOf(kCheckpoint3), third);
            EXPECT_EQ(timeOf(kOff), third + kSecond);
            EXPECT_EQ(boosts(), (std::vector<Sight>{{second, "16/2000"}, {third, "1000/10000"}}));
        });
    };
    for (const int64_t period : kPeriods) {
        fallSilent(period, 0);
        fallSilent(period, 1);
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
        const int64_t next = compositor.queueAt(last + kPeriod60 + 10 * kMs);
        Compositor::waitUntil(next + kPeriod60 - kMs);
        EXPECT_EQ(timeOf(kAccumulated), last + kPeriod60);
        EXPECT_EQ(countOf(kCheckpoint1) + countOf("fast frame"), 0);
    });
}

TEST(Monitor, BufferAfterTheLastCheckpoint_TakesTheLongBoostBackAndKeepsTheRegulatorOn) {
    // A buffer that waits for the service while the hint is sent has woken nobody.
    for (const int64_t hintTakes : {int64_t{0}, 1500 * kMs}) {
        playWatched([&](Compositor& compositor, int64_t last) {
            const int64_t third = last + kPeriod60 + 2 * kSpacing60;
            Compositor::waitUntil(third - kMs);
            device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfHint, hintTakes);
            Compositor::waitUntil(third + kMs);
            device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfHint, 0);
            const int64_t back = compositor.queueAt(third + 500 * kMs);
            Compositor::waitUntil(back + 10 * kMs);
            EXPECT_EQ(timesOf(kOff), std::vector<int64_t>(hintTakes > 0 ? 1 : 0, third + kSecond));
            ASSERT_GE(boosts().size(), 3U);
            EXPECT_EQ(boosts()[2], (Sight{back, "0/0"}));
        });
    }
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
    const std::pair<int64_t, Degrees> cases[] = {
            {2'000'001, {1}}, {2'000'000, {}}, {1'000'000, {}}, {999'999, {-1}}, {1, {-1}},
    };
    for (const int64_t period : kPeriods) {
        for (const auto& [late, expected] : cases) {
            playWatched(period, [&, late = late](Compositor& compositor, int64_t last) {
                const int64_t next = compositor.queueAt(last + period + late);
                for (int i = 1; i <= 3; ++i) compositor.queueAt(next + i * kMs);
            });
            EXPECT_EQ(expectations(), expected) << late << " at " << period;
        }
    }
}

TEST(Monitor, HeldBuffer_CountsAsComeAtItsQueueAndIsNotWatchedWhileHeld) {
    playGame(Scene(), [](Compositor& compositor, int64_t last) {
        compositor.startPacing();
        const int64_t released = compositor.vsyncAt(last + 2 * kMs) + kPeriod60 - kSpacing60;
        const int64_t queued = last + 5 * kMs;
        EXPECT_EQ(compositor.queueAt(queued), released);
        EXPECT_EQ(timeOf("fast frame"), queued);
        Compositor::waitUntil(queued + 3 * kPeriod60);
        EXPECT_EQ(timeOf(kCheckpoint1), released + kPeriod60);
    });
}

TEST(Monitor, Stutter_ForgetsThatFramesCameByThemselvesButOnlyWhileTheRegulatorIsOn) {
    for (const int64_t period : kPeriods) {
        playWatched(period, [&](Compositor& compositor, int64_t last) {
            compositor.consume(kGame);
            compositor.queueAt(last + period + 1);
            compositor.consume(kGame);
            for (int stutter = 0; stutter < 2; ++stutter) {
                Compositor::waitUntil(Compositor::now() + period + period / 2 + 2);
                compositor.consume(kGame);
                compositor.queue(kGame);
            }
        });
        EXPECT_EQ(expectations(), (Degrees{-1, 1, 2}))
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
    EXPECT_EQ(expectations(), (Degrees{-1, 0}));
}

TEST(Monitor, BoostLevel_HoldsBackTheCheckpointsBelowIt) {
    playGame(Scene().frameRegulatorOnly().set("vendor.perf.pfar2.boost_level", "3"),
             [](Compositor&, int64_t last) {
                 Compositor::waitUntil(last + kSecond);
                 EXPECT_EQ(countOf(kCheckpoint2), 1);
             });
    ASSERT_EQ(boosts().size(), 1U);
    EXPECT_EQ(boosts()[0].second, "1000/10000");
    EXPECT_EQ(countOf("skip boost"), 0);
}

// The stop's signal then finds nobody waiting.
TEST(Monitor, UnloadInTheMomentAWaitRunsOut_IsOverAtOnceAndSendsNothing) {
    for (const int64_t silence : {kPeriod60, kPeriod60 + kSpacing60, kPeriod60 + 2 * kSpacing60,
                                  kPeriod60 + 2 * kSpacing60 + kSecond}) {
        int64_t stopped = 0;
        size_t sent = 0;
        const sim::Outcome outcome =
                playGame(Scene().frameRegulatorOnly(), [&](Compositor&, int64_t last) {
                    Compositor::waitUntil(last + silence);
                    stopped = sim::now();
                    sent = boosts().size();
                });
        EXPECT_EQ(outcome.endTimeNs, stopped) << silence;
        EXPECT_LE(boosts().size(), sent + 1) << silence << ": the release that the stop serves";
    }
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
    EXPECT_EQ(linesOf({"D Cindral", "W Cindral", "begin"}), std::vector<std::string>());
}
