// The decision rules at their boundaries.

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>

#include "headroom/HeadroomRules.h"
#include "perf/BoostRules.h"
#include "power/PowerProxy.h"
#include "power/PowerRules.h"
#include "tracker/FrameRules.h"
#include "tracker/PowerOptimizationRules.h"

using namespace android::cindral;

TEST(FrameRules, VsyncPeriods_FallIntoTheirClassUpToTheNanosecond) {
    struct Band {
        int64_t first, last;
        int32_t displayClass;
    };
    for (const Band& band : {Band{15'000'001, 17'999'999, 60}, Band{12'500'001, 14'899'999, 75},
                             Band{10'500'001, 11'699'999, 90}, Band{8'000'001, 8'999'999, 120},
                             Band{6'800'001, 7'699'999, 144}}) {
        EXPECT_EQ(displayClassOf(band.first - 1), 0) << band.displayClass;
        EXPECT_EQ(displayClassOf(band.first), band.displayClass);
        EXPECT_EQ(displayClassOf(band.last), band.displayClass);
        EXPECT_EQ(displayClassOf(band.last + 1), 0) << band.displayClass;
    }
    for (const int64_t period : {std::numeric_limits<int64_t>::min(), int64_t{-1}, int64_t{0},
                                 std::numeric_limits<int64_t>::max()}) {
        EXPECT_EQ(displayClassOf(period), 0) << period;
    }
}

TEST(FrameRules, FrameRates_FallIntoTheirClassWithBothBoundsOutside) {
    struct Band {
        float above, below;
        int32_t rateClass;
    };
    for (const Band& band : {Band{27, 32, 30}, Band{47, 62, 60}, Band{67, 77, 75}, Band{77, 92, 90},
                             Band{107, 122, 120}, Band{130, 147, 144}}) {
        EXPECT_EQ(frameRateClassOf(band.above), -1) << band.rateClass;
        EXPECT_EQ(frameRateClassOf(std::nextafterf(band.above, 1000)), band.rateClass);
        EXPECT_EQ(frameRateClassOf(std::nextafterf(band.below, 0)), band.rateClass);
        EXPECT_EQ(frameRateClassOf(band.below), -1) << band.rateClass;
    }
    for (const float rate : {0.0F, 40.0F, 65.0F, 100.0F, 125.0F, 1000.0F}) {
        EXPECT_EQ(frameRateClassOf(rate), -1) << rate;
    }
}

TEST(FrameRules, WithoutAPeriodOrARenderTime_AFrameIsOnTime) {
    EXPECT_EQ(punctualityOf(0, -1), FramePunctuality::kOnTime);
}

TEST(FrameRules, Stutter_BeginsAtOneAndAHalfPeriods) {
    EXPECT_FALSE(isStutter(14'999'999, 10'000'000));
    EXPECT_TRUE(isStutter(15'000'000, 10'000'000));
    EXPECT_FALSE(isStutter(1'000'000'000'000, -1)) << "without a period there is nothing to miss";
}

TEST(HeadroomRules, Bounds_ComeOutTheSameEverywhere) {
    struct Case {
        int32_t refreshRate;
        int64_t period;
        float minRate;
        int64_t min, max;
    };
    // The last four: with the whole headroom; at 90 Hz the lower bound lies 1 ns above the upper
    // one.
    for (const Case& c : {Case{60, 16'666'666, 0.5F, 8'333'333, 14'999'999},
                          Case{75, 13'333'333, 0.5F, 6'666'666, 11'999'999},
                          Case{90, 11'111'111, 0.5F, 6'666'667, 9'999'999},
                          Case{120, 8'333'333, 0.5F, 6'666'666, 7'499'999},
                          Case{144, 6'944'444, 0.5F, 6'249'999, 6'249'999},
                          Case{75, 13'333'333, 0.9F, 11'999'999, 11'999'999},
                          Case{90, 11'111'111, 0.9F, 10'000'000, 9'999'999},
                          Case{120, 8'333'333, 0.9F, 7'499'999, 7'499'999},
                          Case{60, 16'666'666, 0.9F, 14'999'999, 14'999'999}}) {
        const HeadroomBounds bounds = headroomBounds(c.period, c.refreshRate, c.minRate);
        EXPECT_EQ(bounds.min, c.min) << c.refreshRate << " Hz at " << c.minRate;
        EXPECT_EQ(bounds.max, c.max) << c.refreshRate << " Hz at " << c.minRate;
    }
}

TEST(HeadroomRules, OnlyTheProportionalRate_IsCapped) {
    EXPECT_EQ(minHeadroomFactor(120, 0.57F), 0.9F);
    EXPECT_EQ(minHeadroomFactor(60, 0.95F), 0.95F);
}

TEST(HeadroomRules, Steps_StopAtTheirBoundAlsoWhereTheBoundsAreCrossed) {
    EXPECT_EQ(raisedHeadroom(8'333'333, 14'999'999), 9'333'333);
    EXPECT_EQ(raisedHeadroom(13'999'999, 14'999'999), 14'999'999);
    EXPECT_EQ(raisedHeadroom(14'999'999, 14'999'999), 14'999'999);
    EXPECT_EQ(loweredHeadroom(8'333'334, 8'333'333), 8'333'333);
    EXPECT_EQ(raisedHeadroom(10'000'000, 9'999'999), 9'999'999);
    EXPECT_EQ(loweredHeadroom(9'999'999, 10'000'000), 10'000'000);
    EXPECT_EQ(loweredHeadroom(10'000'000, 10'000'000), 10'000'000);
    EXPECT_EQ(raisedHeadroom(-1, -1), -1);
}

TEST(BoostRules, FirstBoost_IsShorterAndMilderAbove66Hz) {
    EXPECT_EQ(boostFor(1, 66, 15)->durationMs, 8);
    EXPECT_EQ(boostFor(1, 66, 15)->type, 1500);
    EXPECT_EQ(boostFor(1, 67, 14)->durationMs, 4);
    EXPECT_EQ(boostFor(1, 67, 14)->type, 1300);
}

TEST(BoostRules, Expectation_IsNotStoredAgainAtItsBounds) {
    for (const int32_t bound : {3, -3}) {
        const bool up = bound > 0;
        EXPECT_EQ(steppedExpectation(bound, up), std::nullopt);
        EXPECT_EQ(steppedExpectation(bound, !up), up ? 2 : -2);
        EXPECT_EQ(steppedExpectation(up ? 2 : -2, up), bound);
    }
}

TEST(PowerRules, Coefficient_MovesByTheSlackBetweenItsFloorAndZero) {
    const int64_t target = targetRenderTime(16'666'666, 70);
    EXPECT_EQ(target, 11'666'666);
    EXPECT_EQ(coefficientFor(8'000'000, target), -32);
    EXPECT_EQ(coefficientFor(0, target), -100);
    EXPECT_EQ(coefficientFor(target, target), 0);
    EXPECT_EQ(coefficientFor(0, 0), -100);
    EXPECT_EQ(movedCoefficient(-20, -32, -30), -30);
    EXPECT_EQ(movedCoefficient(-20, 40, -30), 0);
    EXPECT_EQ(movedCoefficient(-35, 5, -30), -30);
    EXPECT_FALSE(isCoeChangeWorthSending(0, -3));
    EXPECT_TRUE(isCoeChangeWorthSending(0, -4));
    EXPECT_TRUE(isCoeChangeWorthSending(-4, 0));
}

TEST(PowerRules, FrameIsEarly_FromNothingUpToItsTargetAndItsPeriod) {
    EXPECT_FALSE(isEarly(-1, 10, 7));
    EXPECT_TRUE(isEarly(0, 10, 7));
    EXPECT_TRUE(isEarly(7, 10, 7));
    EXPECT_FALSE(isEarly(8, 10, 7));
    EXPECT_FALSE(isEarly(11, 10, 12));
}

TEST(PowerRules, Threshold_StaysWithinItsLimitsAndTakesTheCoefficientAlong) {
    EXPECT_EQ(raisedThresh(70, 90), 73);
    EXPECT_EQ(raisedThresh(89, 90), 90);
    EXPECT_EQ(droppedThresh(70), 60);
    EXPECT_EQ(droppedThresh(65), 60);
    EXPECT_EQ(rescaledCoefficient(-30, 70, 73), -28);
    EXPECT_EQ(rescaledCoefficient(-30, 70, 60), -35) << "below the floor, and kept so";
    constexpr int32_t kLowest = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(rescaledCoefficient(kLowest, 70, 60), kLowest);
    EXPECT_EQ(movedCoefficient(kLowest + 30, -32, kLowest), kLowest);
    EXPECT_TRUE(isCoeChangeWorthSending(std::numeric_limits<int32_t>::max(), -100));
    EXPECT_EQ(clampedRenderTimeThresh(59), 60);
    EXPECT_EQ(clampedRenderTimeThresh(91), 90);
}

TEST(PowerRules, History_SeesOnlyReleaseAcquireReleaseInARow) {
    constexpr int64_t kPeriod = 16'666'666;
    StatusHistory history;
    int64_t time = 0;
    const auto record = [&](bool byPerf, int64_t after) {
        return history.record({time += after, byPerf}, kPeriod);
    };
    EXPECT_FALSE(record(true, 0));
    EXPECT_FALSE(record(false, 2 * kPeriod));
    EXPECT_TRUE(record(true, 2 * kPeriod));
    EXPECT_FALSE(record(false, kPeriod));
    EXPECT_TRUE(record(true, kPeriod)) << "the second release is also the first of the next one";
    EXPECT_FALSE(record(true, kPeriod));
    EXPECT_FALSE(record(false, kPeriod));
    EXPECT_FALSE(record(true, 2 * kPeriod + 1)) << "too late, the history starts again";
    EXPECT_FALSE(record(false, kPeriod));
    EXPECT_TRUE(record(true, kPeriod));

    StatusHistory withoutPeriod;
    for (const bool byPerf : {true, false, true})
        EXPECT_FALSE(withoutPeriod.record({1, byPerf}, -1));
}

TEST(PowerOptimisationRules, Verification_ComparesThreePeriodsBeforeWithThreeAfter) {
    for (const float drop : {0.5F, 0.50001F}) {
        PowerOptState state;
        state.pingpongCount = 2;
        for (int i = 0; i < 2; ++i) {
            const PowerOptStep step = stepPowerOpt(state, true, 60.0F);
            EXPECT_EQ(step.change, PowerOptSwitch::kKeep);
            state = step.next;
        }
        PowerOptStep step = stepPowerOpt(state, true, 60.0F);
        EXPECT_EQ(step.change, PowerOptSwitch::kEnable);
        state = step.next;
        state.on = true;
        for (int i = 0; i < 3; ++i) {
            step = stepPowerOpt(state, true, 60.0F - drop);
            state = step.next;
        }
        EXPECT_EQ(step.change, drop > 0.5F ? PowerOptSwitch::kWithdraw : PowerOptSwitch::kKeep)
                << drop;
        EXPECT_EQ(state.pingpongCount, drop > 0.5F ? 3 : 0) << drop;
        EXPECT_EQ(state.offSamples + state.onSamples, 0) << drop;
        EXPECT_EQ(state.offFpsSum + state.onFpsSum, 0) << drop;
    }
}

TEST(PowerOptimisationRules, Misses_BreakTheSamplesAndThreeOfThemWithdrawASettledOptimisation) {
    PowerOptState state;
    state = stepPowerOpt(state, true, 60).next;
    state = stepPowerOpt(state, false, 50).next;
    EXPECT_EQ(state.offSamples, 0) << "samples have to be consecutive";
    PowerOptStep step = stepPowerOpt(state, true, 60);
    EXPECT_STREQ(step.log, "eliminate the data of switch");
    EXPECT_EQ(step.next.offSamples, 0) << "the first hit after a miss only forgets the miss";
    EXPECT_EQ(step.next.offFpsSum, 0);
    EXPECT_EQ(stepPowerOpt(step.next, true, 60).next.offSamples, 1);

    PowerOptState settled;
    settled.on = true;
    settled = stepPowerOpt(settled, false, 50).next;
    settled = stepPowerOpt(settled, false, 50).next;
    step = stepPowerOpt(settled, false, 50);
    EXPECT_EQ(step.change, PowerOptSwitch::kWithdraw);

    PowerOptState verifying;
    verifying.on = true;
    verifying.offSamples = 3;
    verifying.offFpsSum = 180;
    for (int i = 0; i < 3; ++i) {
        step = stepPowerOpt(verifying, false, 50);
        verifying = step.next;
    }
    EXPECT_STREQ(step.log, "pingpong occurs!") << "a verification is finished through misses";
}

TEST(PowerOptimisationRules, Precondition_IsMetByAnyOfThree) {
    EXPECT_FALSE(meetsPowerOptPrecondition(30, 59.0F, 60, false));
    EXPECT_TRUE(meetsPowerOptPrecondition(31, 0.0F, 60, false));
    EXPECT_TRUE(meetsPowerOptPrecondition(0, 59.01F, 60, false));
    EXPECT_FALSE(meetsPowerOptPrecondition(0, 119.0F, 120, false));
    EXPECT_TRUE(meetsPowerOptPrecondition(0, 0.0F, 60, true));
}

TEST(Overflow, OfTheLibrarysOwnArithmetic_EndsTheProcess) {
    using android::PowerProxy;
    const android::sp<PowerProxy> power = new PowerProxy(nullptr);
    power->setVsyncPeriod(std::numeric_limits<int64_t>::max() / 50);  // of which 70 % are asked for
    EXPECT_DEATH(power->scaleEnergyIfNeed(0), "");
}
