// The preset headroom regulator: when it is on, and when a held thread leaves.

#include <gtest/gtest.h>

#include <thread>

#include "tests/library/Compositor.h"

using device::EntryPoint;

namespace {

constexpr char kOn[] = "enable PHR";
constexpr char kOff[] = "disable PHR";

// The smallest headroom at 60 Hz: half a period, cut to whole ns.
constexpr int64_t kHeadroom60 = 8'333'333;
constexpr int64_t kTimer60 = kPeriod60 - kHeadroom60;

std::string boundsLine(int64_t period, int64_t headroom) {
    return "vsync: " + std::to_string(period) + ", init headroom: " + std::to_string(headroom) +
           "\n";
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

TEST(Headroom, TwoLayers_AreEachHeldUntilTheirOwnReleaseAfterOneVsync) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t) {
        compositor.start(kOtherGame);
        compositor.play(kOtherGame, 70);
        for (const std::string& layer : {kGame, kOtherGame}) {
            compositor.consume(layer, 1, 31);
            compositor.consume(layer, 0);
        }
        // The first game is late, which makes its headroom a millisecond longer.
        const int64_t vsync = compositor.vsyncAt(Compositor::now() + kPeriod60 - kMs);
        EXPECT_EQ(countOf("onVsync"), 2);
        std::thread other([&] {
            compositor.queue(kOtherGame);
            EXPECT_EQ(Compositor::now(), vsync + kTimer60);
        });
        EXPECT_EQ(compositor.queueAt(vsync + kMs), vsync + kTimer60);
        other.join();
        const int64_t next = compositor.vsyncAt(vsync + 2 * kPeriod60);
        EXPECT_EQ(compositor.queueAt(next + kMs), next + kTimer60 - kMs);
    });
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

// In a check for pending buffers nothing but its time tells that a vsync has come.
TEST(Headroom, Vsync_CountsFromItsReportAlsoWhenItHasToWaitForTheLayerLock) {
    constexpr int64_t kSetUp = 200 * kMs;
    playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t) {
        compositor.startPacing();
        compositor.start(kOtherGame);
        device::StandInDevice::instance().setDelay(EntryPoint::kPerfGetFeedbackExtn, kSetUp);
        const auto isSetUp = [] {
            return serviceCalls(EntryPoint::kPerfGetFeedbackExtn).size() == 2;
        };
        std::thread other([&] {
            for (; !isSetUp(); Compositor::waitUntil(Compositor::now() + kPeriod60))
                compositor.queue(kOtherGame);
        });
        while (!isSetUp()) Compositor::waitUntil(Compositor::now() + kMs);
        const int64_t free = serviceCalls(EntryPoint::kPerfGetFeedbackExtn).back().time + kSetUp;
        const int64_t vsync = free - 6'500'000;
        compositor.vsyncAt(vsync - kPeriod60);
        compositor.consume(kGame, 1);
        compositor.vsyncAt(vsync);
        // Finds the first vsync's release, and is in its second pass when the layer lock is free.
        std::thread held([&] { EXPECT_EQ(compositor.queueAt(free - 1'500'000), free); });
        std::thread blocking([&] {  // waits for the set-up, and holds the layer lock
            Compositor::waitUntil(free - 500'000);
            compositor.queue(kOtherGame);
        });
        EXPECT_EQ(compositor.vsyncAt(free - 300'000), free) << "ends the timer of the one before";
        for (std::thread* thread : {&other, &held, &blocking}) thread->join();
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

TEST(Headroom, FastDisplayWithoutTheFrameRegulator_KeepsTheWholeHeadroomForEver) {
    struct Case {
        int64_t period;
        bool frameRegulator;
        int64_t headroom;
        int64_t at60;  // once the display has become a slow one
    };
    for (const Case& c :
         {Case{kPeriod60, false, 8'333'333, 8'333'333}, Case{kPeriod90, true, 6'666'667, 8'333'333},
          Case{kPeriod90, false, 10'000'000, 14'999'999}}) {
        playGame(
                Scene().set("vendor.perf.pfar2.enable", c.frameRegulator ? "1" : "0"),
                [&](Compositor& compositor, int64_t) {
                    compositor.library.setVsyncPeriod(c.period);  // no news
                    EXPECT_EQ(countOf(boundsLine(c.period, c.headroom)), 1);
                    compositor.library.setVsyncPeriod(16'666'666);
                    EXPECT_EQ(countOf(boundsLine(16'666'666, c.at60)), 1);
                },
                c.period);
    }
}

TEST(Headroom, SmallestRate_IsTheNumberThatThePropertyBeginsWith) {
    struct Case {
        const char* rate;
        int64_t headroom;
    };
    constexpr int64_t kPeriod = 16'666'666;
    for (const Case& c : {Case{"0.75 of it", 12'500'000},
                          Case{"0.6f", 10'000'000},
                          Case{"0.75ns", 12'500'000},
                          Case{" +.75", 12'500'000},
                          Case{"7.5E-1-", 12'500'000},
                          Case{"0.75e", 12'500'000},
                          Case{"0.75e+x", 12'500'000},
                          Case{"0.75.5", 12'500'000},
                          Case{"1.p", kPeriod},
                          Case{"0x1p-1", 0},
                          Case{"nan", 0},
                          Case{"inf", 0},
                          Case{"-infinity", 0},
                          Case{"much", 0},
                          Case{"", 0},
                          Case{".", 0},
                          Case{"+-1", 0},
                          Case{"e1", 0},
                          Case{"1e300", 999'999'986'991'104},
                          Case{"-1e30", -999'999'986'991'104}}) {
        playGame(
                Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", c.rate),
                [](Compositor&, int64_t) {}, kPeriod);
        EXPECT_EQ(countOf(boundsLine(kPeriod, c.headroom)), 1) << c.rate;
    }
}
