// The power controller by itself: what it says and sends, in which order, and at its edges.

#include <gtest/gtest.h>

#include <functional>

#include "power/PowerProxy.h"
#include "tests/library/Component.h"

using android::PowerProxy;

namespace {

constexpr int64_t kPeriod = 16'666'666;
constexpr int64_t kRefresh = 500 * kMs;

void withPower(bool debuggable, const std::function<void(PowerProxy&)>& body) {
    withClient({}, [&](PerfProxy& client) {
        const sp<PowerProxy> power = new PowerProxy(&client);
        power->setVsyncPeriod(kPeriod);
        power->setDebuggable(debuggable);
        body(*power);
    });
}

}  // namespace

TEST(PowerProxy, LinesMarkersAndCalls_ComeInTheirOrder) {
    withPower(true, [](PowerProxy& power) {
        power.scaleEnergyIfNeed(8'000'000);
        power.scaleEnergyIfNeed(8'000'000);
        power.updateStatusAndRel(true);
        power.updateStatusAndRel(false);
        power.reduceThreshold();
        power.reduceThreshold();
        power.increaseThreshold();
    });
    const std::vector<std::string> expected = {
            "begin scaleEnergyIfNeed",
            "end",
            "D Cindral.PowerProxy: renderTime(8000000), targetRenderTime(11666666), coe(-32)",
            "begin negativeBoostAcq",
            "end",
            "D Cindral.PowerProxy: negativeBoostAcq: newCoe(0), prevCoe(0)",
            "perf_hint(4166, (null), 500, 65536) = 1",
            "begin newCoe = 0",
            "end",
            "begin renderTime = 8000000 targetRenderTime = 11666666",
            "end",
            "begin scaleEnergyIfNeed",
            "end",
            "D Cindral.PowerProxy: renderTime(8000000), targetRenderTime(11666666), coe(-32)",
            "begin negativeBoostAcq",
            "end",
            "D Cindral.PowerProxy: negativeBoostAcq: newCoe(-30), prevCoe(0)",
            "perf_hint(4166, (null), 500, 65566) = 2",
            "begin newCoe = -30",
            "end",
            "begin renderTime = 8000000 targetRenderTime = 11666666",
            "end",
            "D Cindral.PowerProxy: release negative boost by  perf",
            "begin negativeBoostRel",
            "end",
            "perf_hint(4166, (null), 0, 65536) = 3",
            "D Cindral.PowerProxy: release negative boost by  power",
            "begin negativeBoostRel",
            "end",
            "begin reduceThreshold",
            "end",
            "D Cindral.PowerProxy: prev thresh:70, curr thresh:60",
            "begin reduceThreshold",
            "end",
            "D Cindral.PowerProxy: prev thresh:60, curr thresh:60",
            "begin increaseThreshold",
            "end",
            "D Cindral.PowerProxy: prev thresh:60, curr thresh:63"};
    EXPECT_EQ(seen(), expected);
}

TEST(PowerProxy, MovedThreshold_TakesTheStrengthAlong) {
    for (const int64_t beyond : {0, 1}) {
        withPower(false, [&](PowerProxy& power) {
            power.negativeBoostAcq(0);
            power.negativeBoostAcq(-30);
            power.reduceThreshold();
            power.reduceThreshold();  // it is at its lowest: nothing moves
            sim::sleepFor(kRefresh + beyond);
            power.negativeBoostAcq(0);
        });
        // -30 has become -35. A step cuts it back to the floor; a refresh sends what stands.
        EXPECT_EQ(seen().back(), beyond == 0 ? "perf_hint(4166, (null), 500, 65566) = 3"
                                             : "perf_hint(4166, (null), 500, 65571) = 3");
    }
}

TEST(PowerProxy, Cooldown_BeginsWithEveryMissAndHoldsBackAStepButNotARefresh) {
    for (const bool inForce : {true, false}) {
        withPower(false, [&](PowerProxy& power) {
            power.negativeBoostAcq(0);
            if (!inForce) power.updateStatusAndRel(false);
            power.updateStatusAndRel(true);
            const size_t sent = seen().size();
            power.negativeBoostAcq(-30);
            for (int i = 0; i < 2; ++i) power.scaleEnergyIfNeed(8'000'000);
            EXPECT_EQ(seen().size(), sent) << inForce;
            power.scaleEnergyIfNeed(8'000'000);
            EXPECT_EQ(seen().size(), sent + 1) << inForce;
            power.updateStatusAndRel(true);
            sim::sleepFor(kRefresh + 1);
            power.negativeBoostAcq(-30);
            EXPECT_EQ(seen().size(), sent + 3) << inForce;
        });
    }
}

TEST(PowerProxy, WithoutAServiceOrAtItsEnd_NothingIsSent) {
    withClient({}, [](PerfProxy& client) {
        sp<PowerProxy> power = new PowerProxy(&client);
        power->negativeBoostAcq(0);
        StandInDevice::instance().clearEvents();
        power.clear();
        const sp<PowerProxy> alone = new PowerProxy(nullptr);
        alone->negativeBoostAcq(0);
        alone->updateStatusAndRel(true);
        EXPECT_TRUE(seen().empty());
    });
}
