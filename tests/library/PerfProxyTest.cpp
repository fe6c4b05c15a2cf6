// The service client by itself: what of it no scene reaches.

#include <gtest/gtest.h>

#include "cindral/ModuleState.h"
#include "tests/library/Component.h"

TEST(PerfProxy, WithoutLibraries_EveryWrapperGivesItsFixedAnswer) {
    withClient({"libskewknob_system.so"}, [](PerfProxy& client) {
        int values[] = {1, 0};
        EXPECT_EQ(client.featureKnob(5), 0);
        EXPECT_EQ(client.getPerfHalVer(), -1.0);
        EXPECT_EQ(client.perfHint(1, nullptr, 2, 3), -1);
        EXPECT_EQ(client.perfLockAcq(0, 0, values, 2), -1);
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

TEST(PerfProxy, PropertyThatTheServiceDoesNotEnd_EndsWithItsField) {
    withClient({}, [](PerfProxy& client) {
        StandInDevice::instance().setProperty("long", std::string(92, 'x'));
        EXPECT_EQ(std::string(client.perfGetProp("long", "").text), std::string(91, 'x'));
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
        EXPECT_FALSE(client.isGameLayer("StatusBar#0"));
        EXPECT_EQ(client.getGameWeight("StatusBar#0"), -1);
    });
    EXPECT_TRUE(seen().empty());
}

TEST(PerfProxy, Boosts_AreCountedAndSentAsTheLevelTheRateAndTheExpectationSay) {
    withClient({}, [](PerfProxy& perf) {
        perf.startBoostThread();
        sim::sleepFor(kMs);
        const auto hint = [&](int checkpoint) {
            perf.boostHint(checkpoint);
            sim::sleepFor(kMs);
        };
        perf.setBoostLevel(1);
        hint(0);  // below the level: nothing at all
        EXPECT_EQ(perf.getBoostHintCounter(), 0);
        hint(1);  // skipped, but counted
        hint(4);  // no checkpoint, but counted
        EXPECT_EQ(perf.getBoostHintCounter(), 2);
        EXPECT_EQ(perf.getBoostCounter(), 0);
        EXPECT_FALSE(perf.isBoosted());

        perf.setDebuggable(true);
        hint(1);
        perf.setFpsMode(90);
        perf.setBoostExpectationDegree(1);
        hint(1);
        EXPECT_TRUE(perf.isBoosted());
        perf.setFpsMode(0);
        hint(2);
        EXPECT_EQ(perf.getBoostHintCounter(), 5);
        EXPECT_EQ(perf.getBoostCounter(), 2);
        perf.resetStats();
        EXPECT_EQ(perf.getBoostCounter() + perf.getBoostHintCounter(), 0);
        EXPECT_EQ(perf.getBoostExpectationDegree(), 0);

        StandInDevice::instance().setDelay(EntryPoint::kPerfHint, kMs);
        perf.boostRelease();
        sim::sleepFor(kMs / 2);
        EXPECT_FALSE(perf.isBoosted()) << "over before the service has answered";
        sim::sleepFor(kMs);
        perf.stopBoostThread();
    });
    // The stop wakes the thread, which serves the stored release again.
    EXPECT_EQ(seen(),
              (std::vector<std::string>{
                      "begin skip boost", "end", "begin Boost CHECKPOINT1_NOT_QUEUED",
                      "D Cindral.PerfProxy: Boost CHECKPOINT1_NOT_QUEUED",
                      "perf_hint(4166, (null), 4, 1300) = 1", "end",
                      "begin Boost CHECKPOINT2_NOT_QUEUED",
                      "D Cindral.PerfProxy: Boost CHECKPOINT2_NOT_QUEUED",
                      "perf_hint(4166, (null), 0, 2000) = 2", "end", "begin boostReleaseImp",
                      "perf_hint(4166, (null), 0, 0) = 3", "end", "begin boostReleaseImp",
                      "perf_hint(4166, (null), 0, 0) = 4", "end"}));
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
