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
    for (const auto& [first, last, displayClass] : {std::tuple{15'000'001, 17'999'999, 60},
                                                    {12'500'001, 14'899'999, 75},
                                                    {10'500'001, 11'699'999, 90},
                                                    {8'000'001, 8'999'999, 120},
                                                    {6'800'001, 7'699'999, 144}}) {
        EXPECT_EQ(displayClassOf(first - 1), 0) << displayClass;
        EXPECT_EQ(displayClassOf(first), displayClass);
        EXPECT_EQ(displayClassOf(last), displayClass);
        EXPECT_EQ(displayClassOf(last + 1), 0) << displayClass;
    }
    for (const int64_t period : {std::numeric_limits<int64_t>::min(), int64_t{-1}, int64_t{0},
                                 std::numeric_limits<int64_t>::max()}) {
        EXPECT_EQ(displayClassOf(period), 0) << period;
    }
}

TEST(FrameRules, FrameRates_FallIntoTheirClassWithBothBoundsOutside) {
    for (const auto& [above, below, rateClass] : {std::tuple{27.0F, 32.0F, 30},
                                                  {47.0F, 62.0F, 60},
                                                  {67.0F, 77.0F, 75},
                                                  {77.0F, 92.0F, 90},
                                                  {107.0F, 122.0F, 120},
                                                  {130.0F, 147.0F, 144}}) {
        EXPECT_EQ(frameRateClassOf(above), -1) << rateClass;
        EXPECT_EQ(frameRateClassOf(std::nextafterf(above, 1000)), rateClass);
        EXPECT_EQ(frameRateClassOf(std::nextafterf(below, 0)), rateClass);
        EXPECT_EQ(frameRateClassOf(below), -1) << rateClass;
    }
    for (const float rate : {0.0F, 40.0F, 65.0F, 100.0F, 125.0F, 1000.0F}) {
        EXPECT_EQ(frameRateClassOf(rate), -1) << rate;
    }
}

TEST(FrameRules, Stutter_BeginsAtOneAndAHalfPeriods) {
    EXPECT_FALSE(isStutter(14'999'999, 10'000'000));
    EXPECT_TRUE(isStutter(15'000'000, 10'000'000));
}

TEST(FrameRules, WithoutAPeriod_AFrameIsOnTimeAndNothingMissed) {
    EXPECT_EQ(punctualityOf(0, -1), FramePunctuality::kOnTime);
    EXPECT_FALSE(isStutter(1'000'000'000'000, -1));
}

TEST(HeadroomRules, Bounds_ComeOutTheSameEverywhere) {
    // With half the period, and with all that may be taken: there, at 90 Hz, the lower bound lies 1 ns
    // above the upper one.
    for (const auto& [refreshRate, period, half, whole, max] :
         {std::tuple{60, 16'666'666, 8'333'333, 14'999'999, 14'999'999},
          {75, 13'333'333, 6'666'666, 11'999'999, 11'999'999},
          {90, 11'111'111, 6'666'667, 10'000'000, 9'999'999},
          {120, 8'333'333, 6'666'666, 7'499'999, 7'499'999},
          {144, 6'944'444, 6'249'999, 6'249'999, 6'249'999}}) {
        EXPECT_EQ(headroomBounds(period, refreshRate, 0.5F).min, half) << refreshRate;
        EXPECT_EQ(headroomBounds(period, refreshRate, 0.9F).min, whole) << refreshRate;
        EXPECT_EQ(headroomBounds(period, refreshRate, 0.5F).max, max) << refreshRate;
    }
    EXPECT_EQ(minHeadroomFactor(120, 0.57F), 0.9F) << "only the proportional rate is capped";
    EXPECT_EQ(minHeadroomFactor(60, 0.95F), 0.95F);
}

TEST(HeadroomRules, Steps_StopAtTheirBoundAlsoWhereTheBoundsAreCrossed) {
    EXPECT_EQ(raisedHeadroom(8'333'333, 14'999'999), 9'333'333);
    EXPECT_EQ(raisedHeadroom(14'999'999, 14'999'999), 14'999'999);
    EXPECT_EQ(loweredHeadroom(8'333'334, 8'333'333), 8'333'333);
    EXPECT_EQ(raisedHeadroom(10'000'000, 9'999'999), 9'999'999);
    EXPECT_EQ(loweredHeadroom(9'999'999, 10'000'000), 10'000'000);
}

TEST(BoostRules, FirstBoost_IsShorterAndMilderAbove66Hz) {
    EXPECT_EQ(boostFor(1, 66, 15)->type, 1500);
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
    // A release by a missed frame or an acquisition, two periods after the one before, or later.
    const std::string events = "RARARRA,RAR";
    std::string pingpongs;
    for (const char event : events) {
        if (event == ',') {
            ++time;
        } else {
            pingpongs += history.record({time += 2 * kPeriod, event == 'R'}, kPeriod) ? '!' : '.';
        }
    }
    EXPECT_EQ(pingpongs, "..!.!....!") << "the second release is also the first of the next one";

    StatusHistory withoutPeriod;
    for (const bool byPerf : {true, false, true})
        EXPECT_FALSE(withoutPeriod.record({1, byPerf}, -1));
}

TEST(PowerOptimisationRules, LossOfMoreThanHalfAFrame_WithdrawsAndCounts) {
    for (const bool loses : {false, true}) {
        const float fps = loses ? 59.49999F : 59.5F;
        // On, after two losses: the last of three samples after 180 frames in three before.
        const PowerOptState lastOfVerification = {true, 2, 0, 2, 3, 2 * fps, 180};
        const PowerOptStep step = stepPowerOpt(lastOfVerification, true, fps);
        EXPECT_EQ(step.change, loses ? PowerOptSwitch::kWithdraw : PowerOptSwitch::kKeep);
        EXPECT_EQ(step.next.pingpongCount, loses ? 3 : 0);
    }
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
