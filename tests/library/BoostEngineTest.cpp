// What the boost engine offers beyond what the tracker uses.

#include <gtest/gtest.h>

#include "perf/BoostRules.h"
#include "tests/library/Component.h"

namespace {

// Runs `body` with a client whose boost thread is running and waiting.
template <typename Body>
void withBoostThread(Body body) {
    withClient({}, [&](PerfProxy& perf) {
        perf.startBoostThread();
        sim::sleepFor(kMs);
        body(perf);
        perf.stopBoostThread();
    });
}

void hint(PerfProxy& perf, int checkpoint) {
    perf.boostHint(checkpoint);
    sim::sleepFor(kMs);
}

}  // namespace

TEST(BoostEngine, FastLayers_GetTheirOwnDurationsAndTypes) {
    withBoostThread([](PerfProxy& perf) {
        perf.setNegativeBoostProp(true);
        for (const int fps : {60, 66, 67, 90, 0}) {
            perf.setFpsMode(fps);
            hint(perf, 1);
            hint(perf, 2);
        }
        EXPECT_EQ(seen(), (std::vector<std::string>{"perf_hint(4166, (null), 8, 1500) = 1",
                                                    "perf_hint(4166, (null), 16, 2000) = 2",
                                                    "perf_hint(4166, (null), 8, 1500) = 3",
                                                    "perf_hint(4166, (null), 15, 2000) = 4",
                                                    "perf_hint(4166, (null), 4, 1300) = 5",
                                                    "perf_hint(4166, (null), 14, 2000) = 6",
                                                    "perf_hint(4166, (null), 4, 1300) = 7",
                                                    "perf_hint(4166, (null), 11, 2000) = 8",
                                                    "perf_hint(4166, (null), 8, 1500) = 9",
                                                    "perf_hint(4166, (null), 0, 2000) = 10"}));
    });
}

TEST(BoostEngine, Counters_TellHintsFromBoosts) {
    withBoostThread([](PerfProxy& perf) {
        perf.setBoostLevel(1);
        hint(perf, 0);  // below the level: nothing at all
        EXPECT_EQ(perf.getBoostHintCounter(), 0);
        hint(perf, 1);  // skipped, but counted
        hint(perf, 4);  // no checkpoint, but counted
        EXPECT_EQ(perf.getBoostHintCounter(), 2);
        EXPECT_EQ(perf.getBoostCounter(), 0);
        EXPECT_FALSE(perf.isBoosted());
        hint(perf, 2);
        EXPECT_EQ(perf.getBoostHintCounter(), 3);
        EXPECT_EQ(perf.getBoostCounter(), 1);
        EXPECT_TRUE(perf.isBoosted());
    });
}

TEST(BoostEngine, Expectation_StaysWithinThreeEitherWayAndIsForgottenWithTheCounters) {
    withBoostThread([](PerfProxy& perf) {
        for (int i = 0; i < 4; ++i) perf.adjustBoostExpectation(true);
        EXPECT_EQ(perf.getBoostExpectationDegree(), 3);
        for (int i = 0; i < 7; ++i) perf.adjustBoostExpectation(false);
        EXPECT_EQ(perf.getBoostExpectationDegree(), -3);
        hint(perf, 3);
        perf.resetStats();
        EXPECT_EQ(perf.getBoostExpectationDegree(), 0);
        EXPECT_EQ(perf.getBoostCounter() + perf.getBoostHintCounter(), 0);
    });
}

TEST(BoostEngine, Boost_IsATraceSectionAroundItsLineAndItsCall) {
    withBoostThread([](PerfProxy& perf) {
        perf.setDebuggable(true);
        hint(perf, 1);
        perf.setNegativeBoostProp(true);
        hint(perf, 1);
        StandInDevice::instance().setDelay(EntryPoint::kPerfHint, kMs);
        perf.boostRelease();
        sim::sleepFor(kMs / 2);
        EXPECT_FALSE(perf.isBoosted()) << "over before the service has answered";
        sim::sleepFor(kMs);
    });
    EXPECT_EQ(seen(),
              (std::vector<std::string>{
                      "begin skip boost", "end", "begin Boost CHECKPOINT1_NOT_QUEUED",
                      "D Cindral.PerfProxy: Boost CHECKPOINT1_NOT_QUEUED",
                      "perf_hint(4166, (null), 8, 1500) = 1", "end", "begin boostReleaseImp",
                      "perf_hint(4166, (null), 0, 0) = 2", "end",
                      // The stop wakes the thread, which serves the stored request again.
                      "begin boostReleaseImp", "perf_hint(4166, (null), 0, 0) = 3", "end"}));
}
