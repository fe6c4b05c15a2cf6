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

TEST(Headroom, TwoLayers_ArePacedFromTheir31stAccumulatingBufferOnAndEachUntilItsOwnRelease) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t) {
        compositor.start(kOtherGame);
        compositor.play(kOtherGame, 70);
        int on = 0;
        for (const std::string& layer : {kGame, kOtherGame}) {
            compositor.consume(layer, 1, 30);
            compositor.consume(layer, 0);  // breaks the run
            compositor.consume(layer, 2, 30);
            EXPECT_EQ(countOf(kOn), on++);
            compositor.consume(layer, 2);
            EXPECT_EQ(countOf(kOn), on);
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

// In a check for pending buffers nothing but its time tells that a vsync has come.
TEST(Headroom, Vsync_CountsFromItsReportAlsoWhenItHasToWaitForTheLayerLock) {
    constexpr int64_t kSetUp = 200 * kMs;
    playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t) {
        compositor.startPacing();
        compositor.start(kOtherGame);
        device::StandInDevice::instance().setDelay(EntryPoint::kPerfGetFeedbackExtn, kSetUp);
        const auto isSetUp = [] { return sightsOf({"perf_get_feedback_extn"}).size() == 2; };
        std::thread other([&] {
            for (; !isSetUp(); Compositor::waitUntil(Compositor::now() + kPeriod60))
                compositor.queue(kOtherGame);
        });
        while (!isSetUp()) Compositor::waitUntil(Compositor::now() + kMs);
        const int64_t free = sightsOf({"perf_get_feedback_extn"}).back().first + kSetUp;
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
    for (const bool within : {true, false}) {
        playGame(Scene().headroomOnly(), [&](Compositor& compositor, int64_t last) {
            const int64_t first = 10 * kMs;  // the very first decrement
            const int64_t sixth = first + 15 * kSecond - (within ? 1 : 0);
            for (int i = 1; i <= 11; ++i) {
                compositor.consume(kGame, 1, 31);  // switches it on
                Compositor::waitUntil((i < 5 ? last : sixth) + (i < 5 ? i : i - 5) * 100 * kMs);
                compositor.consume(kGame, 0);
            }
            // All are forgotten then, and the sixth is not among the next six; or only the oldest is.
            EXPECT_EQ(timesOf(kOff), within ? (std::vector<int64_t>{sixth, sixth + 600 * kMs})
                                            : std::vector<int64_t>{sixth + 100 * kMs});
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
    for (const auto& [period, frameRegulator, headroom, afterwards] :
         {std::tuple{kPeriod60, "0", 8'333'333, 8'333'333},
          {kPeriod90, "1", 6'666'667, 8'333'333},
          {kPeriod75, "0", 11'999'999, 14'999'999}}) {
        playGame(Scene().set("vendor.perf.pfar2.enable", frameRegulator), period,
                 [&, period = period, headroom = headroom, afterwards = afterwards](
                         Compositor& compositor, int64_t) {
                     compositor.library.setVsyncPeriod(period);  // no news
                     EXPECT_EQ(countOf(boundsLine(period, headroom)), 1);
                     compositor.library.setVsyncPeriod(16'666'666);  // a slow display from now on
                     EXPECT_EQ(countOf(boundsLine(16'666'666, afterwards)), 1);
                 });
    }
}

TEST(Headroom, SmallestRate_IsTheNumberThatThePropertyBeginsWith) {
    constexpr int64_t kPeriod = 16'666'666;
    const std::map<int64_t, std::vector<const char*>> cases = {
            {12'500'000,
             {"0.75 of it", "0.75ns", " +.75", "7.5E-1-", "0.75e", "0.75e+x", "0.75.5"}},
            {10'000'000, {"0.6f"}},
            {kPeriod, {"1.p"}},
            {0, {"0x1p-1", "nan", "inf", "-infinity", "much", "", ".", "+-1", "e1"}},
            {999'999'986'991'104, {"1e300"}},
            {-999'999'986'991'104, {"-1e30"}}};
    for (const auto& [headroom, rates] : cases) {
        for (const char* const rate : rates) {
            playGame(Scene().headroomOnly().set("vendor.perf.phr.hr_min_rate", rate), kPeriod,
                     [](Compositor&, int64_t) {});
            EXPECT_EQ(countOf(boundsLine(kPeriod, headroom)), 1) << rate;
        }
    }
}
