// The preset headroom regulator: when it is on, and when a held thread leaves.

#include <gtest/gtest.h>

#include <thread>

#include "tests/library/Compositor.h"

namespace {

constexpr char kOn[] = "enable PHR";
constexpr char kOff[] = "disable PHR";

// The smallest headroom at 60 Hz: half a period, cut to whole ns.
constexpr int64_t kHeadroom60 = 8'333'333;
constexpr int64_t kTimer60 = kPeriod60 - kHeadroom60;

// A game whose regulator is on, with no pending buffers, at a quiet moment.
int64_t activate(Compositor& compositor) {
    compositor.start(kGame);
    const int64_t last = compositor.playUntilEnvironment(kGame);
    for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
    compositor.consume(kGame, 0);
    return last;
}

int64_t vsyncAt(Compositor& compositor, int64_t time) {
    Compositor::waitUntil(time);
    compositor.library.trackVsyncSignal();
    return time;
}

// Queues a buffer at `time` and returns when the thread came back.
int64_t queueAt(Compositor& compositor, int64_t time) {
    Compositor::waitUntil(time);
    compositor.queue(kGame);
    return Compositor::now();
}

}  // namespace

TEST(Headroom, ThirtyFirstAccumulatingDecrement_SwitchesRegulationOn) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        for (int i = 0; i < 30; ++i) compositor.consume(kGame, 1);
        compositor.consume(kGame, 0);  // breaks the run
        for (int i = 0; i < 30; ++i) compositor.consume(kGame, 2);
        EXPECT_EQ(countOf(kOn), 0);
        compositor.consume(kGame, 2);
        EXPECT_EQ(countOf(kOn), 1);
    });
}

TEST(Headroom, HeldThread_LeavesExactlyPeriodMinusHeadroomAfterTheVsync) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t vsync = vsyncAt(compositor, activate(compositor) + 20 * kMs);
        EXPECT_EQ(queueAt(compositor, vsync + kMs), vsync + kTimer60);
        EXPECT_EQ(countOf("delay finish"), 1);
    });
}

TEST(Headroom, ReleaseThatAlreadyCame_IsUsedByOneBufferOnly) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t vsync = vsyncAt(compositor, activate(compositor) + 20 * kMs);
        const int64_t after = vsync + kTimer60 + kMs;
        EXPECT_EQ(queueAt(compositor, after), after);
        EXPECT_EQ(countOf("timer expired"), 1);
        // The second buffer of the cycle waits for the release of the next one.
        std::thread producer(
                [&] { EXPECT_EQ(queueAt(compositor, after + kMs), vsync + kPeriod60 + kTimer60); });
        vsyncAt(compositor, vsync + kPeriod60);
        producer.join();
    });
}

TEST(Headroom, WithoutVsyncs_AWaitEndsAfterAPeriodAndTheNextReleaseIsSpentOnIt) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t start = activate(compositor) + 20 * kMs;
        EXPECT_EQ(queueAt(compositor, start), start + kPeriod60);
        const int64_t vsync = vsyncAt(compositor, start + kPeriod60 + kMs);
        const int64_t afterRelease = vsync + kTimer60 + kMs;
        EXPECT_EQ(queueAt(compositor, afterRelease), afterRelease + kPeriod60);
        EXPECT_EQ(countOf("timer expired"), 0);
    });
}

TEST(Headroom, EarlyVsync_EndsTheRunningTimerAndStartsNone) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t vsync = vsyncAt(compositor, activate(compositor) + 20 * kMs);
        std::thread producer([&] {
            const int64_t released = vsync + 4 * kMs;
            EXPECT_EQ(queueAt(compositor, vsync + kMs), released);
            EXPECT_EQ(queueAt(compositor, released + kMs), released + kMs + kPeriod60);
        });
        vsyncAt(compositor, vsync + 4 * kMs);
        producer.join();
    });
}

TEST(Headroom, PendingBuffers_AreGivenAnotherPeriodWhenTheReportOfThisCycleSaysSo) {
    struct Case {
        const char* name;
        bool reported;
        int pending;
        int64_t extra;  // beyond the release
    };
    const Case cases[] = {{"reported pending", true, 1, kPeriod60},
                          {"reported none", true, 0, 0},
                          {"not reported: two passes", false, 1, 2 * kMs}};
    for (const Case& c : cases) {
        play(Scene().headroomOnly(), [&](Compositor& compositor) {
            const int64_t start = activate(compositor);
            compositor.consume(kGame, 1);
            const int64_t vsync = vsyncAt(compositor, start + 20 * kMs);
            if (c.reported) compositor.consume(kGame, c.pending);
            EXPECT_EQ(queueAt(compositor, vsync + kMs), vsync + kTimer60 + c.extra) << c.name;
            EXPECT_EQ(countOf("accumulation delay"), c.extra == kPeriod60 ? 1 : 0) << c.name;
        });
    }
}

TEST(Headroom, ReportDuringTheCheck_IsSeenAtTheNextPass) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t start = activate(compositor);
        compositor.consume(kGame, 1);
        const int64_t vsync = vsyncAt(compositor, start + 20 * kMs);
        const int64_t release = vsync + kTimer60;
        std::thread producer(
                [&] { EXPECT_EQ(queueAt(compositor, vsync + kMs), release + kMs + kPeriod60); });
        Compositor::waitUntil(release + kMs / 2);
        compositor.consume(kGame, 1);
        producer.join();
    });
}

TEST(Headroom, LateAndEarlyFrames_MoveItByAMillisecondWithinItsBounds) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        int64_t time = activate(compositor);
        // Late by more than 2 ms: a longer headroom. Nobody reports vsyncs, so each call takes a
        // period.
        for (int i = 0; i < 8; ++i) time = queueAt(compositor, time + kPeriod60 + 2 * kMs + 1);
        // Exactly 2 ms late or early: none.
        time = queueAt(compositor, time + kPeriod60 + 2 * kMs);
        time = queueAt(compositor, time + kPeriod60 - 2 * kMs);
        time = queueAt(compositor, time + kPeriod60 - 2 * kMs - 1);
    });
    std::vector<std::string> moves;
    for (const Sight& marker : markers()) {
        if (marker.what.rfind("headroom = ", 0) == 0) moves.push_back(marker.what);
    }
    EXPECT_EQ(moves, (std::vector<std::string>{"headroom = 9333333", "headroom = 10333333",
                                               "headroom = 11333333", "headroom = 12333333",
                                               "headroom = 13333333", "headroom = 14333333",
                                               "headroom = 15000000", "headroom = 14000000"}));
}

TEST(Headroom, ChangedHeadroom_HoldsFromTheNextCycleOn) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        const int64_t start = activate(compositor) + kPeriod60 + 3 * kMs;
        const int64_t vsync = vsyncAt(compositor, start - kMs);
        EXPECT_EQ(queueAt(compositor, start), vsync + kTimer60);
        const int64_t next = vsyncAt(compositor, vsync + 2 * kPeriod60);
        EXPECT_EQ(queueAt(compositor, next + kMs), next + kTimer60 - kMs);
    });
}

TEST(Headroom, SixthStutterWithin15Seconds_SwitchesRegulationOff) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        int64_t time = activate(compositor);  // the first decrement of all counts as a stutter
        const auto stutter = [&](int64_t after) {
            Compositor::waitUntil(time += after);
            compositor.consume(kGame, 0);
        };
        for (int i = 0; i < 4; ++i) stutter(100 * kMs);
        EXPECT_EQ(countOf(kOff), 0);
        stutter(100 * kMs);
        EXPECT_EQ(countOf(kOff), 1);
        // They are forgotten, and the one that switched it off is not among the next six.
        for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
        EXPECT_EQ(countOf(kOn), 2);
        for (int i = 0; i < 5; ++i) stutter(100 * kMs);
        EXPECT_EQ(countOf(kOff), 1);
        stutter(100 * kMs);
        EXPECT_EQ(countOf(kOff), 2);
    });
}

TEST(Headroom, StuttersMoreThan15SecondsOld_AreDropped) {
    for (const bool dropped : {false, true}) {
        play(Scene().headroomOnly(), [&](Compositor& compositor) {
            int64_t time = activate(compositor);
            const int64_t first = 10 * kMs;  // the very first decrement
            for (int i = 0; i < 4; ++i) {
                Compositor::waitUntil(time += 100 * kMs);
                compositor.consume(kGame, 0);
            }
            Compositor::waitUntil(first + 15 * kSecond - (dropped ? 0 : 1));
            compositor.consume(kGame, 0);
            EXPECT_EQ(countOf(kOff), dropped ? 0 : 1);
            // Five are remembered, the oldest of them no longer the first one.
            Compositor::waitUntil(Compositor::now() + 100 * kMs);
            compositor.consume(kGame, 0);
            EXPECT_EQ(countOf(kOff), 1);
        });
    }
}

TEST(Headroom, LayerThatFallsSilent_IsNoLongerPacedOnceItsFrameRegulatorGivesUp) {
    play(Scene(), [](Compositor& compositor) {
        const int64_t last = activate(compositor);
        Compositor::waitUntil(last + 3 * kSecond);
        EXPECT_EQ(timeOf(kOff), last + kPeriod60 + 2 * (kPeriod60 / 2) + kSecond);
        for (int i = 0; i < 40; ++i) compositor.consume(kGame, 1);
        EXPECT_EQ(countOf(kOn), 1) << "it has no rate until a period closes";
        const int64_t now = Compositor::now();
        EXPECT_EQ(queueAt(compositor, now), now);
    });
}

TEST(Headroom, Bounds_FollowTheDisplayAndTheProperty) {
    struct Case {
        const char* property;
        int64_t period;
        const char* line;
    };
    // Without the frame regulator a fast display keeps the whole headroom.
    const Case cases[] = {
            {"0.5", 16'666'666, "vsync: 16666666, init headroom: 8333333\n"},
            {"0.75 of it", 16'666'666, "vsync: 16666666, init headroom: 12500000\n"},
            {"much", 16'666'666, "vsync: 16666666, init headroom: 0\n"},
            {"", 16'666'666, "vsync: 16666666, init headroom: 0\n"},
            {"0.5", 11'111'111, "vsync: 11111111, init headroom: 10000000\n"},
    };
    for (const Case& c : cases) {
        play(Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", c.property),
             [&](Compositor& compositor) {
                 compositor.start(kGame, c.period);
                 compositor.playUntilEnvironment(kGame, c.period);
             });
        EXPECT_EQ(countOf(c.line), 1) << c.property << " at " << c.period;
    }
}

TEST(Headroom, FastDisplay_LeavesItsMarkOnASlowOne) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        compositor.start(kGame, 8'333'333);
        compositor.playUntilEnvironment(kGame, 8'333'333);
        compositor.library.setVsyncPeriod(16'666'666);
        EXPECT_EQ(countOf("vsync: 16666666, init headroom: 14999999\n"), 1);
    });
}

TEST(Headroom, HostileRates_NeitherTrapNorHoldLongerThanAPeriod) {
    for (const char* rate : {"1e30", "-1e30", "1e300", "-3", "1000", "nan", "inf", "0x1p100"}) {
        play(Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", rate),
             [&](Compositor& compositor) {
                 const int64_t vsync = vsyncAt(compositor, activate(compositor) + 20 * kMs);
                 const int64_t queued = vsync + kMs;
                 EXPECT_LE(queueAt(compositor, queued), queued + kPeriod60) << rate;
                 EXPECT_LE(queueAt(compositor, queued + 60 * kMs), queued + 60 * kMs + kPeriod60)
                         << rate;
             });
    }
}
