// The power controller by itself: what it says and sends, in which order, and at its edges.

#include <gtest/gtest.h>

#include <algorithm>
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
        power.negativeBoostAcq(0);
        StandInDevice::instance().clearEvents();
        power.scaleEnergyIfNeed(8'000'000);
        power.updateStatusAndRel(true);
        power.updateStatusAndRel(false);
        power.reduceThreshold();
        power.increaseThreshold();
    });
    const std::string tag = "D Cindral.PowerProxy: ";
    std::vector<std::string> lines = seen();
    lines.erase(std::remove(lines.begin(), lines.end(), "end"), lines.end());
    const std::vector<std::string> expected = {
            "begin scaleEnergyIfNeed",
            tag + "renderTime(8000000), targetRenderTime(11666666), coe(-32)",
            "begin negativeBoostAcq",
            tag + "negativeBoostAcq: newCoe(-30), prevCoe(0)",
            "perf_hint(4166, (null), 500, 65566) = 2",
            "begin newCoe = -30",
            "begin renderTime = 8000000 targetRenderTime = 11666666",
            tag + "release negative boost by  perf",
            "begin negativeBoostRel",
            "perf_hint(4166, (null), 0, 65536) = 3",
            tag + "release negative boost by  power",
            "begin negativeBoostRel",
            "begin reduceThreshold",
            tag + "prev thresh:70, curr thresh:60",
            "begin increaseThreshold",
            tag + "prev thresh:60, curr thresh:63"};
    EXPECT_EQ(lines, expected);
}

TEST(PowerProxy, MissAcquisitionMiss_CountsAsAPingpong) {
    withPower(true, [](PowerProxy& power) {
        for (int i = 0; i < 2; ++i) {
            power.updateStatusAndRel(true);
            sim::sleepFor(10 * kMs);
            if (i == 0)
                power.negativeBoostAcq(0);  // the first one is a refresh: no cooldown holds it
        }
    });
    EXPECT_EQ(seen()[seen().size() - 4], "D Cindral.PowerProxy: pingpongCount(1)");
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
            power.scaleEnergyIfNeed(12'000'000);  // in time, but beyond 70 %: no cooldown
            power.scaleEnergyIfNeed(8'000'000);
            EXPECT_EQ(seen().size(), sent + 3) << inForce;
            power.updateStatusAndRel(true);
            sim::sleepFor(kRefresh + 1);
            power.negativeBoostAcq(-30);
            EXPECT_EQ(seen().size(), sent + 5) << inForce;
        });
    }
}

TEST(PowerProxy, WithoutAServiceOrAtItsEnd_NothingIsSent) {
    withPower(false, [](PowerProxy& power) { power.negativeBoostAcq(0); });
    EXPECT_EQ(seen().size(), 1U);
    const sp<PowerProxy> alone = new PowerProxy(nullptr);
    alone->negativeBoostAcq(0);
    alone->updateStatusAndRel(true);
    EXPECT_EQ(seen().size(), 1U);
}
