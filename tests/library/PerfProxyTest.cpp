// The binding to the service: wrappers, fallbacks and locks.

#include <gtest/gtest.h>

#include "cindral/ModuleState.h"
#include "tests/library/Component.h"

namespace {

int lockSomething(PerfProxy& client) {
    int list[] = {1, 2};
    return client.perfLockAcq(0, 0, list, 2);
}

}  // namespace

TEST(PerfProxy, WithoutLibraries_EveryWrapperGivesItsFixedAnswer) {
    withClient({"libskewknob_system.so"}, [](PerfProxy& client) {
        int values[] = {1, 0};
        EXPECT_EQ(client.featureKnob(5), 0);
        EXPECT_EQ(client.getPerfHalVer(), -1.0);
        EXPECT_EQ(client.perfHint(1, nullptr, 2, 3), -1);
        EXPECT_EQ(lockSomething(client), -1);
        EXPECT_EQ(client.perfLockRel(1), -1);
        EXPECT_EQ(client.perfGetFeedback(1, "p"), -1);
        EXPECT_EQ(client.perfGetFeedbackExtn(1, "p", 2, values), -1);
        const std::string longDefault(100, 'd');
        EXPECT_EQ(std::string(client.perfGetProp("x", longDefault.c_str()).text),
                  std::string(91, 'd'));
        client.disablePl(true);
        client.disablePl(false);
        EXPECT_TRUE(seen().empty());
    });
}

TEST(PerfProxy, Locks_AreHandedBackByTheHandleThatStaysStored) {
    withClient({}, [](PerfProxy& client) {
        client.disablePl(false);
        client.disablePl(true);
        client.disablePl(false);
        client.disablePl(false);
        client.disableCoreCtl(true);
        client.disableCoreCtl(false);
    });
    EXPECT_EQ(seen(),
              (std::vector<std::string>{
                      "perf_lock_rel(-1) = -1", "perf_lock_acq(0, 0, {0x41444000, 0}, 2) = 1",
                      "perf_lock_rel(1) = 0", "perf_lock_rel(1) = -1",
                      "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 2", "perf_lock_rel(2) = 0"}));
}

TEST(PerfProxy, LayerWithoutPackage_IsNoGameWithoutAQuestion) {
    withClient({}, [](PerfProxy& client) {
        StandInDevice::instance().setVerdict("", 2);
        client.setDebuggable(true);
        EXPECT_FALSE(client.isGameLayer("StatusBar#0"));
        EXPECT_EQ(client.getGameWeight("StatusBar#0"), -1);
    });
    EXPECT_EQ(seen(),
              (std::vector<std::string>{"D Cindral.PerfProxy: isGameLayer:0 [StatusBar#0][]",
                                        "D Cindral.PerfProxy: GameWeight:-1 [StatusBar#0][]"}));
}

TEST(PerfProxy, ModuleInitialisedAnew_DestroysItsFormerClientUnlessACheckerIsAskingIt) {
    StandInDevice::instance().reset();
    StandInDevice::instance().setKnob(6, 1);
    StandInDevice::instance().setProperty("vendor.perf.phr.enable", "1");
    StandInDevice::instance().setDelay(EntryPoint::kPerfGetFeedback, kMs);
    sim::run({}, [] {
        const device::ServiceLibraries services;
        // How many hold the first client, beside this test, once the module has another one.
        const auto holdersAfter = [](int64_t wait) {
            cindralInit();
            const sp<PerfProxy> former = android::moduleClient();
            cindralTrackBufferIncrement("SurfaceView[com.example.video/x]#1");
            sim::sleepFor(wait);
            android::clearConfigs();
            EXPECT_TRUE(cindralInit());
            const int holders = former->getStrongCount() - 1;
            sim::sleepFor(2 * kMs);
            return holders;
        };
        EXPECT_EQ(holdersAfter(kMs / 2), 1) << "the checker would close its libraries";
        for (int i = 0; i < 4; ++i)  // make the module forget that it ignores the layer
            cindralTrackBufferIncrement(("StatusBar#" + std::to_string(i)).c_str());
        EXPECT_EQ(holdersAfter(2 * kMs), 0);
    });
}
