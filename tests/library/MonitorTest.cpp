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

struct Deadlines {
    const char* name;
    int64_t period;
    int64_t spacing;
    int pending;
    int64_t extraWait;
};

void PrintTo(const Deadlines& deadlines, std::ostream* stream) {
    *stream << deadlines.name;
}

const Deadlines kDeadlines[] = {
        {"60 Hz: half a period apart", kPeriod60, 8'333'333, 0, 0},
        {"75 Hz: a period apart", 13'333'333, 13'333'333, 0, 0},
        {"90 Hz: a period apart", kPeriod90, kPeriod90, 0, 0},
        {"120 Hz: a period apart", 8'333'333, 8'333'333, 0, 0},
        {"144 Hz: a period apart", 6'944'444, 6'944'444, 0, 0},
        {"60 Hz with a pending buffer: one period later", kPeriod60, 8'333'333, 1, kPeriod60},
};

class Monitor : public testing::TestWithParam<Deadlines> {};

}  // namespace

TEST_P(Monitor, LayerStopsQueueing_SendsThreeHintsAtTheirDeadlinesAndGoesOff) {
    const Deadlines& deadlines = GetParam();
    int64_t last = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame, deadlines.period);
        last = compositor.playUntilEnvironment(kGame, deadlines.period);
        compositor.consume(kGame, deadlines.pending);
        Compositor::waitUntil(last + 3 * kSecond);
    });
    const int64_t first = last + deadlines.period + deadlines.extraWait;
    EXPECT_EQ(timeOf(kOn), last);
    EXPECT_EQ(countOf(kAccumulated), deadlines.pending);
    EXPECT_EQ(timeOf(kCheckpoint1), first);
    EXPECT_EQ(timeOf("skip boost"), first);
    EXPECT_EQ(timeOf(kCheckpoint2), first + deadlines.spacing);
    EXPECT_EQ(timeOf(kCheckpoint3), first + 2 * deadlines.spacing);
    EXPECT_EQ(timeOf(kOff), first + 2 * deadlines.spacing + kSecond);
    const std::vector<Sight> expected = {{first + deadlines.spacing, "16/2000"},
                                         {first + 2 * deadlines.spacing, "1000/10000"}};
    EXPECT_EQ(boosts(), expected);
}

INSTANTIATE_TEST_SUITE_P(Displays, Monitor, testing::ValuesIn(kDeadlines));

TEST(Monitor, BufferBetweenTheCheckpoints_EndsTheEscalationAndStartsANewWatch) {
    int64_t last = 0;
    int64_t next = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = compositor.playUntilEnvironment(kGame);
        next = last + kPeriod60 + 3 * kMs;
        Compositor::waitUntil(next);
        compositor.queue(kGame);
        Compositor::waitUntil(next + kPeriod60 + 10 * kMs);
    });
    EXPECT_EQ(timesOf(kCheckpoint1), (std::vector<int64_t>{last + kPeriod60, next + kPeriod60}));
    EXPECT_EQ(timesOf(kCheckpoint2), std::vector<int64_t>{next + kPeriod60 + 8'333'333});
}

TEST(Monitor, BufferWhileOthersArePending_EndsTheAdditionalWait) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t last = compositor.playUntilEnvironment(kGame);
        compositor.consume(kGame, 1);
        Compositor::waitUntil(last + kPeriod60 + 5 * kMs);
        EXPECT_EQ(countOf(kAccumulated), 1);
        EXPECT_EQ(countOf("fast frame"), 0);
        compositor.queue(kGame);
        Compositor::waitUntil(last + kPeriod60 + 10 * kMs);
        compositor.queue(kGame);
        Compositor::waitUntil(last + 2 * kPeriod60 + kMs);
        EXPECT_EQ(countOf(kCheckpoint1), 0);
        EXPECT_EQ(countOf("fast frame"), 1);
    });
}

TEST(Monitor, BufferAfterTheLastCheckpoint_TakesTheLongBoostBackAndKeepsTheRegulatorOn) {
    int64_t back = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        back = compositor.playUntilEnvironment(kGame) + 500 * kMs;
        Compositor::waitUntil(back);
        compositor.queue(kGame);
        Compositor::waitUntil(back + 10 * kMs);
        EXPECT_EQ(countOf(kOff), 0);
        ASSERT_EQ(boosts().size(), 3U);
        EXPECT_EQ(boosts()[2], (Sight{back, "0/0"}));
    });
    EXPECT_EQ(boosts().size(), 4U)
            << "the stop wakes the boost thread, which serves the request again";
}

TEST(Monitor, BufferAfterAShortBoost_LeavesItToRunOut) {
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t last = compositor.playUntilEnvironment(kGame);
        Compositor::waitUntil(last + kPeriod60 + 9 * kMs);
        compositor.queue(kGame);
        Compositor::waitUntil(last + kPeriod60 + 20 * kMs);
        ASSERT_EQ(boosts().size(), 1U);
        EXPECT_EQ(boosts()[0].what, "16/2000");
    });
}

TEST(Monitor, ReleaseThatComesDuringAHint_IsServedAsSoonAsTheHintReturns) {
    constexpr int64_t kHintTakes = 3 * kMs;
    int64_t last = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = compositor.playUntilEnvironment(kGame);
        standin::Device::instance().setDelay(standin::EntryPoint::kPerfHint, kHintTakes);
        // The second hint goes out half a period after the first deadline and is still being sent.
        Compositor::waitUntil(last + kPeriod60 + 9 * kMs);
        compositor.queue(kGame);
        EXPECT_EQ(Compositor::now(), last + kPeriod60 + 9 * kMs);
        Compositor::waitUntil(last + kPeriod60 + 15 * kMs);
        const int64_t hint = last + kPeriod60 + 8'333'333;
        EXPECT_EQ(boosts(), (std::vector<Sight>{{hint, "16/2000"}, {hint + kHintTakes, "0/0"}}));
    });
}

TEST(Monitor, ExpectationAfterAHint_FollowsHowLateTheFrameWas) {
    struct Case {
        int64_t late;
        const char* marker;  // null: no step
    };
    const Case cases[] = {
            {2'000'001, "mBoostExpectationDegree = 1"},
            {2'000'000, nullptr},
            {1'000'000, nullptr},
            {999'999, "mBoostExpectationDegree = -1"},
            {1, "mBoostExpectationDegree = -1"},
    };
    for (const Case& c : cases) {
        play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
            compositor.start(kGame);
            const int64_t next = compositor.playUntilEnvironment(kGame) + kPeriod60 + c.late;
            Compositor::waitUntil(next);
            compositor.queue(kGame);
        });
        EXPECT_EQ(countOf("mBoostExpectationDegree = 1") + countOf("mBoostExpectationDegree = -1"),
                  c.marker != nullptr ? 1 : 0)
                << c.late;
        if (c.marker != nullptr) {
            EXPECT_EQ(countOf(c.marker), 1) << c.late;
        }
    }
}

TEST(Monitor, OneHint_MovesTheExpectationOnce) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        int64_t time = compositor.playUntilEnvironment(kGame) + kPeriod60 + 1;
        for (int i = 0; i < 4; ++i) {
            Compositor::waitUntil(time);
            compositor.queue(kGame);
            time += 10 * kMs;
        }
        EXPECT_EQ(countOf("mBoostExpectationDegree = -1"), 1);
        EXPECT_EQ(countOf("mBoostExpectationDegree = -2"), 0);
    });
}

TEST(Monitor, HeldBuffer_CountsAsComeAtItsQueueAndIsNotWatchedWhileHeld) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t queued = compositor.playUntilEnvironment(kGame) + 5 * kMs;
        for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
        compositor.consume(kGame, 0);
        Compositor::waitUntil(queued);
        compositor.queue(kGame);
        EXPECT_EQ(Compositor::now(), queued + kPeriod60) << "no vsync releases it";
        EXPECT_EQ(timesOf("fast frame"), std::vector<int64_t>{queued});
        Compositor::waitUntil(queued + 3 * kPeriod60);
        EXPECT_EQ(timeOf(kCheckpoint1), queued + 2 * kPeriod60);
    });
}

TEST(Monitor, StutterWhileTheRegulatorIsOff_KeepsTheExpectation) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t early = compositor.playUntilEnvironment(kGame) + kPeriod60 + 1;
        Compositor::waitUntil(early);
        compositor.queue(kGame);
        EXPECT_EQ(countOf("mBoostExpectationDegree = -1"), 1);
        Compositor::waitUntil(early + 2 * kSecond);
        EXPECT_EQ(countOf(kOff), 1);
        compositor.consume(kGame, 0);
        compositor.consume(kGame, 0);
        while (countOf(kOn) == 1) {
            Compositor::waitUntil(Compositor::now() + kPeriod60);
            compositor.queue(kGame);
        }
        Compositor::waitUntil(Compositor::now() + kPeriod60 + 3 * kMs);
        compositor.queue(kGame);
        EXPECT_EQ(countOf("mBoostExpectationDegree = 0"), 1);
    });
}

TEST(Monitor, FramesThatStayedLate_GetTheMildestBoostFromThenOn) {
    int64_t late = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        late = compositor.playUntilEnvironment(kGame) + kPeriod60 + 3 * kMs;
        Compositor::waitUntil(late);
        compositor.queue(kGame);
        Compositor::waitUntil(late + kPeriod60 + kMs);
    });
    EXPECT_EQ(boosts(), (std::vector<Sight>{{late + kPeriod60, "8/1500"}}));
}

TEST(Monitor, Stutter_ForgetsThatFramesCameByThemselves) {
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t first = compositor.playUntilEnvironment(kGame) + kPeriod60 + 1;
        compositor.consume(kGame);
        Compositor::waitUntil(first);
        compositor.queue(kGame);
        EXPECT_EQ(countOf("mBoostExpectationDegree = -1"), 1);
        compositor.consume(kGame);
        Compositor::waitUntil(first + kPeriod60 + kPeriod60 / 2 + 2);
        compositor.consume(kGame);  // more than one and a half periods after the last one
        compositor.queue(kGame);
        EXPECT_EQ(countOf("mBoostExpectationDegree = 1"), 1) << "up from 0, not from -1";
        // A positive expectation is kept.
        Compositor::waitUntil(Compositor::now() + 2 * kPeriod60);
        compositor.consume(kGame);
        compositor.queue(kGame);
        EXPECT_EQ(countOf("mBoostExpectationDegree = 2"), 1);
    });
}

TEST(Monitor, BoostLevel_HoldsBackTheCheckpointsBelowIt) {
    play(Scene().frameRegulatorOnly().set("vendor.perf.pfar2.boost_level", "3"),
         [](Compositor& compositor) {
             compositor.start(kGame);
             const int64_t last = compositor.playUntilEnvironment(kGame);
             Compositor::waitUntil(last + kSecond);
             EXPECT_EQ(countOf(kCheckpoint2), 1);
         });
    ASSERT_EQ(boosts().size(), 1U);
    EXPECT_EQ(boosts()[0].what, "1000/10000");
    EXPECT_EQ(countOf("skip boost"), 0);
}

TEST(Monitor, ThreadsAreRealTimeAndNamedOnlyWhileDebugging) {
    const auto play3 = [](const char* debug) {
        return play(Scene().set("vendor.perf.cindral.debug", debug), [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.playUntilEnvironment(kGame);
        });
    };
    std::vector<std::string> named;
    for (const sim::ThreadRecord& thread : play3("1").threads) {
        if (thread.policy == SCHED_FIFO) {
            named.push_back(thread.name);
            EXPECT_EQ(thread.nice, -8);
            EXPECT_EQ(thread.priority, 1);
        }
    }
    EXPECT_EQ(named, (std::vector<std::string>{"BLT", "BP", "PHR"}));
    for (const sim::ThreadRecord& thread : play3("0").threads) {
        EXPECT_TRUE(thread.name != "BLT" && thread.name != "BP" && thread.name != "PHR");
    }
    for (const Sight& line : logs()) EXPECT_EQ(line.what[0], 'E') << line.what;
    EXPECT_TRUE(markers().empty());
}
