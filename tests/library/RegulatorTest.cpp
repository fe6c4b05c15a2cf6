// The headroom regulator by itself: how its flags hand a release from one thread to the other.

#include <gtest/gtest.h>

#include <thread>

#include "headroom/PresetHeadroomRegulator.h"
#include "tests/library/Component.h"
#include "tracker/BufferLayerTracker.h"

using android::BufferLayerTracker;
using android::PresetHeadroomRegulator;

namespace {

constexpr int64_t kPeriod = 16'666'667;
constexpr int64_t kMinHeadroom = 8'333'333;
constexpr int64_t kTimer = kPeriod - kMinHeadroom;

struct Regulator {
    PresetHeadroomRegulator& regulator;

    int64_t vsync() {
        regulator.onVsync(sim::now());
        return sim::now();
    }
    // A vsync, and the time by which its release is over.
    void cycle() {
        vsync();
        sim::sleepFor(kPeriod);
    }
    // How long a buffer queued now is held.
    int64_t held() {
        const int64_t queued = sim::now();
        regulator.trackQueueBuffer();
        return sim::now() - queued;
    }
};

template <typename Body>
void withRegulator(Body body, bool gfar = false) {
    withClient({}, [&](PerfProxy& client) {
        sp<PerfProxy> owner = &client;
        const sp<PresetHeadroomRegulator> regulator =
                new PresetHeadroomRegulator(owner, gfar, true);
        regulator->setVsyncInfo(kPeriod, 60);
        regulator->setActiveStatus(true);
        sim::sleepFor(kMs);
        Device::instance().clearEvents();
        Regulator driver{*regulator};
        body(driver);
        regulator->forceStop();
    });
}

bool sawLine(const std::string& line) {
    const std::vector<std::string> lines = seen();
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

}  // namespace

TEST(Regulator, ReleaseIsSpentOnAWaitThatRanOut_AndTheNextOneIsKept) {
    withRegulator([](Regulator& r) {
        EXPECT_EQ(r.held(), kPeriod);
        r.cycle();
        r.cycle();
        EXPECT_EQ(r.held(), 0);
    });
}

TEST(Regulator, WaitThatAReleaseEnded_LeavesTheNextReleaseAlone) {
    withRegulator([](Regulator& r) {
        r.vsync();
        EXPECT_EQ(r.held(), kTimer);
        r.cycle();
        EXPECT_EQ(r.held(), 0);
    });
}

TEST(Regulator, Inactive_IgnoresVsyncsAndHoldsNobodyButKeepsItsRelease) {
    withRegulator([](Regulator& r) {
        r.cycle();
        r.regulator.setActiveStatus(false);
        Device::instance().clearEvents();
        EXPECT_EQ(r.held(), 0);
        r.vsync();
        EXPECT_TRUE(seen().empty());
        r.regulator.setActiveStatus(true);
        r.regulator.setActiveStatus(true);
        EXPECT_EQ(seen().size(), 3U) << "section, line and end, once";
        EXPECT_EQ(r.held(), 0) << "the release from before";
        EXPECT_EQ(r.held(), kPeriod) << "none came from the ignored vsync";
    });
}

TEST(Regulator, SamePeriod_ChangesNothingAndAnotherSetsTheHeadroomBack) {
    withRegulator([](Regulator& r) {
        r.regulator.increasePresetHeadroom();
        r.regulator.setVsyncInfo(kPeriod, 90);
        r.vsync();
        EXPECT_EQ(r.held(), kTimer - kMs);
        r.regulator.setVsyncInfo(kPeriod - 1, 60);
        r.vsync();
        EXPECT_EQ(r.held(), kTimer - 1);
    });
}

TEST(Regulator, Bounds_DependOnTheFrameRegulatorAbove60Hz) {
    for (const bool gfar : {false, true}) {
        withRegulator(
                [](Regulator& r) {
                    r.regulator.setVsyncInfo(13'333'333, 75);
                    r.regulator.setVsyncInfo(11'111'111, 90);
                },
                gfar);
        const std::string line = "D Cindral.HeadroomRegulator: vsync: ";
        EXPECT_TRUE(sawLine(line + (gfar ? "13333333, init headroom: 6666666\n"
                                         : "13333333, init headroom: 11999999\n")));
        EXPECT_TRUE(sawLine(line + (gfar ? "11111111, init headroom: 6666667\n"
                                         : "11111111, init headroom: 10000000\n")));
    }
}

TEST(Regulator, PendingBuffers_AreWaitedForUntilTheClockIsBeyondTheVsync) {
    withRegulator([](Regulator& r) {
        r.regulator.updateAccumulationStatus(true);
        const int64_t release = sim::now() + kTimer;
        r.regulator.onVsync(release + 5 * kMs);
        EXPECT_EQ(r.held(), kTimer + 6 * kMs) << "at 5 ms it is not yet later";
    });
}

TEST(Regulator, ReportDuringTheCheckThatNothingIsPending_EndsIt) {
    withRegulator([](Regulator& r) {
        r.regulator.updateAccumulationStatus(true);
        const int64_t release = r.vsync() + kTimer;
        std::thread consumer([&] {
            sim::sleepUntil(release + kMs / 2);
            r.regulator.updateAccumulationStatus(false);
        });
        EXPECT_EQ(r.held(), kTimer + kMs);
        consumer.join();
        EXPECT_FALSE(sawLine("W Cindral.HeadroomRegulator: accumulation delay"));
    });
}

TEST(Regulator, ReleaseDuringTheCheck_EndsItsPassAndThePassCounts) {
    withRegulator([](Regulator& r) {
        r.cycle();
        r.regulator.updateAccumulationStatus(true);
        const int64_t vsync = r.vsync();
        sim::sleepUntil(vsync + kTimer -
                        kMs / 2);  // so that the check begins with the kept release
        EXPECT_EQ(r.held(), kMs / 2 + kMs);
        EXPECT_EQ(r.held(), kPeriod + 2 * kMs) << "the release in the check was used up by it";
    });
}

TEST(Regulator, AccumulationDelay_EndsWithTheNextReleaseWhichIsUsedUp) {
    withRegulator([](Regulator& r) {
        r.regulator.updateAccumulationStatus(true);
        const int64_t vsync = r.vsync();
        r.regulator.updateAccumulationStatus(true);
        std::thread display([&] {
            sim::sleepUntil(vsync + 10 * kMs);
            r.vsync();
        });
        EXPECT_EQ(r.held(), 10 * kMs + kTimer);
        display.join();
        EXPECT_TRUE(sawLine("W Cindral.HeadroomRegulator: accumulation delay"));
        r.regulator.updateAccumulationStatus(false);
        EXPECT_EQ(r.held(), kPeriod);
    });
}

TEST(Regulator, AccumulationDelayThatRunsOut_CostsNoRelease) {
    withRegulator([](Regulator& r) {
        r.regulator.updateAccumulationStatus(true);
        r.vsync();
        r.regulator.updateAccumulationStatus(true);
        EXPECT_EQ(r.held(), kTimer + kPeriod);
        r.regulator.updateAccumulationStatus(false);
        r.cycle();
        EXPECT_EQ(r.held(), 0);
    });
}

TEST(Regulator, Stop_LetsAHeldBufferGoAtOnceAndHoldsNoOther) {
    withRegulator([](Regulator& r) {
        std::thread stopper([&] {
            sim::sleepFor(3 * kMs);
            r.regulator.forceStop();
        });
        EXPECT_EQ(r.held(), 3 * kMs);
        stopper.join();
        EXPECT_EQ(r.held(), 0);
    });
    EXPECT_TRUE(sawLine("D Cindral.HeadroomRegulator: ~PresetHeadroomRegulator"));
}

TEST(Regulator, SwitchedOnAfterItsEnd_HasNobodyToReleaseAndNothingPending) {
    withRegulator([](Regulator& r) {
        r.regulator.updateAccumulationStatus(true);
        r.regulator.forceStop();
        sim::sleepFor(kMs);
        r.regulator.setActiveStatus(true);
        r.vsync();
        EXPECT_EQ(r.held(), kPeriod);
    });
}

TEST(Tracker, End_WaitsForTheIncrementUnderWay) {
    const sim::Outcome outcome = sim::run({}, [] {
        sp<BufferLayerTracker> tracker = new BufferLayerTracker("layer", true, true, false);
        BufferLayerTracker* working = tracker.get();
        const int64_t start = sim::now();
        int64_t ended = 0;
        working->lockForWork();
        std::thread retirer([&] {
            tracker.clear();
            ended = sim::now();
        });
        sim::sleepFor(kMs);
        EXPECT_EQ(ended, 0);
        working->onBufferIncrement();
        retirer.join();
        EXPECT_EQ(ended, start + kMs);
    });
    EXPECT_TRUE(outcome.ok());
}
