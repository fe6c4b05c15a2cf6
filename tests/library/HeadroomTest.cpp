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

// A game whose regulator is on, with no pending buffers, from a quiet moment on.
void playPaced(const std::function<void(Compositor&, int64_t quiet)>& body) {
    playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t last) {
        compositor.startPacing();
        body(compositor, last + 20 * kMs);
    });
}

}  // namespace

TEST(Headroom, ThirtyFirstAccumulatingDecrement_SwitchesRegulationOn) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t) {
        compositor.consume(kGame, 1, 30);
        compositor.consume(kGame, 0);  // breaks the run
        compositor.consume(kGame, 2, 30);
        EXPECT_EQ(countOf(kOn), 0);
        compositor.consume(kGame, 2);
        EXPECT_EQ(countOf(kOn), 1);
    });
}

TEST(Headroom, HeldThread_LeavesExactlyPeriodMinusHeadroomAfterTheVsync) {
    playPaced([](Compositor& compositor, int64_t quiet) {
        const int64_t vsync = compositor.vsyncAt(quiet);
        EXPECT_EQ(compositor.queueAt(vsync + kMs), vsync + kTimer60);
        EXPECT_EQ(countOf("delay finish"), 1);
    });
}

TEST(Headroom, ReleaseThatAlreadyCame_IsUsedByOneBufferOnly) {
    playPaced([](Compositor& compositor, int64_t quiet) {
        const int64_t vsync = compositor.vsyncAt(quiet);
        const int64_t after = vsync + kTimer60 + kMs;
        EXPECT_EQ(compositor.queueAt(after), after);
        EXPECT_EQ(countOf("timer expired"), 1);
        // The second buffer of the cycle waits for the release of the next one.
        std::thread producer(
                [&] { EXPECT_EQ(compositor.queueAt(after + kMs), vsync + kPeriod60 + kTimer60); });
        compositor.vsyncAt(vsync + kPeriod60);
        producer.join();
    });
}

TEST(Headroom, WithoutVsyncs_AWaitEndsAfterAPeriodAndTheNextReleaseIsSpentOnIt) {
    playPaced([](Compositor& compositor, int64_t quiet) {
        EXPECT_EQ(compositor.queueAt(quiet), quiet + kPeriod60);
        const int64_t vsync = compositor.vsyncAt(quiet + kPeriod60 + kMs);
        const int64_t afterRelease = vsync + kTimer60 + kMs;
        EXPECT_EQ(compositor.queueAt(afterRelease), afterRelease + kPeriod60);
        EXPECT_EQ(countOf("timer expired"), 0);
    });
}

TEST(Headroom, EarlyVsync_EndsTheRunningTimerAndStartsNone) {
    playPaced([](Compositor& compositor, int64_t quiet) {
        const int64_t vsync = compositor.vsyncAt(quiet);
        const int64_t early = vsync + 4 * kMs;
        std::thread producer([&] {
            EXPECT_EQ(compositor.queueAt(vsync + kMs), early);
            EXPECT_EQ(compositor.queueAt(early + kMs), early + kMs + kPeriod60);
        });
        compositor.vsyncAt(early);
        producer.join();
    });
}

TEST(Headroom, PendingBuffers_AreGivenAnotherPeriodWhenTheReportOfThisCycleSaysSo) {
    struct Case {
        const char* name;
        int64_t reportedAt;  // after the vsync; never if negative
        int pending;
        int64_t extra;  // beyond the release
    };
    for (const Case& c : {Case{"reported pending", 0, 1, kPeriod60}, Case{"reported none", 0, 0, 0},
                          Case{"not reported: two passes", -1, 1, 2 * kMs},
                          Case{"pending during a pass", kTimer60 + kMs / 2, 1, kMs + kPeriod60},
                          Case{"none during a pass", kTimer60 + kMs / 2, 0, kMs}}) {
        playPaced([&](Compositor& compositor, int64_t quiet) {
            compositor.consume(kGame, 1);
            const int64_t vsync = compositor.vsyncAt(quiet);
            std::thread consumer([&] {
                if (c.reportedAt < 0) return;
                Compositor::waitUntil(vsync + c.reportedAt);
                compositor.consume(kGame, c.pending);
            });
            EXPECT_EQ(compositor.queueAt(vsync + kMs), vsync + kTimer60 + c.extra) << c.name;
            EXPECT_EQ(countOf("accumulation delay"), c.extra >= kPeriod60 ? 1 : 0) << c.name;
            consumer.join();
        });
    }
}

TEST(Headroom, LateAndEarlyFrames_MoveItByAMillisecondWithinItsBounds) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t time) {
        compositor.startPacing();
        // Nobody reports vsyncs, so each call takes a period. Late by more than 2 ms, or early: it
        // moves. Exactly 2 ms: it does not.
        for (const int64_t late : {2'000'001, 2'000'001, 2'000'001, 2'000'001, 2'000'001, 2'000'001,
                                   2'000'001, 2'000'001, 2'000'000, -2'000'000, -2'000'001}) {
            time = compositor.queueAt(time + kPeriod60 + late);
        }
    });
    EXPECT_EQ(markersOf({"headroom = "}),
              (std::vector<std::string>{"headroom = 9333333", "headroom = 10333333",
                                        "headroom = 11333333", "headroom = 12333333",
                                        "headroom = 13333333", "headroom = 14333333",
                                        "headroom = 15000000", "headroom = 14000000"}));
}

TEST(Headroom, ChangedHeadroom_HoldsFromTheNextCycleOn) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t last) {
        compositor.startPacing();
        const int64_t late = last + kPeriod60 + 3 * kMs;
        const int64_t vsync = compositor.vsyncAt(late - kMs);
        EXPECT_EQ(compositor.queueAt(late), vsync + kTimer60);
        const int64_t next = compositor.vsyncAt(vsync + 2 * kPeriod60);
        EXPECT_EQ(compositor.queueAt(next + kMs), next + kTimer60 - kMs);
    });
}

TEST(Headroom, SixthStutterWithin15Seconds_SwitchesRegulationOff) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t time) {
        compositor.startPacing();  // its first decrement of all counts as a stutter
        const auto stutter = [&](int times) {
            for (; times > 0; --times) {
                Compositor::waitUntil(time += 100 * kMs);
                compositor.consume(kGame, 0);
            }
        };
        stutter(4);
        EXPECT_EQ(countOf(kOff), 0);
        stutter(1);
        EXPECT_EQ(countOf(kOff), 1);
        // They are forgotten, and the one that switched it off is not among the next six.
        compositor.consume(kGame, 1, 31);
        EXPECT_EQ(countOf(kOn), 2);
        stutter(5);
        EXPECT_EQ(countOf(kOff), 1);
        stutter(1);
        EXPECT_EQ(countOf(kOff), 2);
    });
}

TEST(Headroom, StuttersMoreThan15SecondsOld_AreDropped) {
    for (const bool dropped : {false, true}) {
        playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t last) {
            compositor.startPacing();
            const int64_t first = 10 * kMs;  // the very first decrement
            const int64_t sixth = first + 15 * kSecond - (dropped ? 0 : 1);
            for (const int64_t time :
                 {last + 100 * kMs, last + 200 * kMs, last + 300 * kMs, last + 400 * kMs, sixth}) {
                Compositor::waitUntil(time);
                compositor.consume(kGame, 0);
            }
            EXPECT_EQ(countOf(kOff), dropped ? 0 : 1);
            // Five are remembered, the oldest of them no longer the first one.
            Compositor::waitUntil(Compositor::now() + 100 * kMs);
            compositor.consume(kGame, 0);
            EXPECT_EQ(countOf(kOff), 1);
        });
    }
}

TEST(Headroom, LayerThatFallsSilent_IsNoLongerPacedOnceItsFrameRegulatorGivesUp) {
    playGame(Scene(), [](Compositor& compositor, int64_t last) {
        compositor.startPacing();
        Compositor::waitUntil(last + 3 * kSecond);
        EXPECT_EQ(timeOf(kOff), last + kPeriod60 + 2 * (kPeriod60 / 2) + kSecond);
        compositor.consume(kGame, 1, 40);
        EXPECT_EQ(countOf(kOn), 1) << "it has no rate until a period closes";
        const int64_t now = Compositor::now();
        EXPECT_EQ(compositor.queueAt(now), now);
    });
}

TEST(Headroom, Bounds_FollowTheDisplayAndTheProperty) {
    struct Case {
        const char* minRate;
        int64_t period;
        int64_t next;  // the display changes to this period
        bool frameRegulator;
        const char* line;
    };
    // Without the frame regulator a fast display keeps the whole headroom, and leaves its mark on a
    // slow one.
    for (const Case& c :
         {Case{"0.5", 16'666'666, 0, false, "vsync: 16666666, init headroom: 8333333\n"},
          Case{"0.5", 13'333'333, 0, true, "vsync: 13333333, init headroom: 6666666\n"},
          Case{"0.5", 13'333'333, 0, false, "vsync: 13333333, init headroom: 11999999\n"},
          Case{"0.5", 11'111'111, 0, true, "vsync: 11111111, init headroom: 6666667\n"},
          Case{"0.5", 11'111'111, 0, false, "vsync: 11111111, init headroom: 10000000\n"},
          Case{"0.5", 8'333'333, 16'666'666, false,
               "vsync: 16666666, init headroom: 14999999\n"}}) {
        playGame(
                Scene().set("vendor.perf.pfar2.enable", c.frameRegulator ? "1" : "0")
                        .set("vendor.perf.phr.hr_min_rate", c.minRate),
                [&](Compositor& compositor, int64_t) {
                    // A period that stays is no news.
                    compositor.library.setVsyncPeriod(c.next != 0 ? c.next : c.period);
                },
                c.period);
        EXPECT_EQ(countOf(c.line), 1) << c.minRate << " at " << c.period << c.line;
    }
}

TEST(Headroom, SmallestRate_IsTheNumberThatThePropertyBeginsWith) {
    struct Case {
        const char* rate;
        int64_t headroom;
    };
    constexpr int64_t kPeriod = 16'666'666;
    for (const Case& c :
         {Case{"0.75 of it", 12'500'000}, Case{"0.6f", 10'000'000}, Case{"0.75ns", 12'500'000},
          Case{" +.75", 12'500'000}, Case{"7.5E-1-", 12'500'000}, Case{"0.75e", 12'500'000},
          Case{"0.75e+x", 12'500'000}, Case{"0.75.5", 12'500'000}, Case{"1.p", kPeriod},
          Case{"0x1p-1", 0}, Case{"nan", 0}, Case{"inf", 0}, Case{"-infinity", 0}, Case{"much", 0},
          Case{"", 0}, Case{".", 0}, Case{"+-1", 0}, Case{"e1", 0}}) {
        playGame(
                Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", c.rate),
                [](Compositor&, int64_t) {}, kPeriod);
        EXPECT_EQ(countOf("vsync: 16666666, init headroom: " + std::to_string(c.headroom) + "\n"),
                  1)
                << c.rate;
    }
}

TEST(Headroom, HostileRates_NeitherTrapNorHoldLongerThanAPeriod) {
    for (const char* rate : {"1e30", "-1e30", "1e300", "-3", "1000"}) {
        playGame(Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", rate),
                 [&](Compositor& compositor, int64_t last) {
                     compositor.startPacing();
                     const int64_t vsync = compositor.vsyncAt(last + 20 * kMs);
                     for (const int64_t queued : {vsync + kMs, vsync + 61 * kMs}) {
                         EXPECT_LE(compositor.queueAt(queued), queued + kPeriod60) << rate;
                     }
                 });
    }
}
