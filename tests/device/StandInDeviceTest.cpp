#include <gtest/gtest.h>
#include <time.h>

#include <functional>
#include <set>
#include <thread>

#include "device/StandInDevice.h"
#include "tests/device/ServiceClient.h"

using namespace standin;

namespace {

std::function<void(int64_t)> onSleep;

}  // namespace

// Stands where virtual time would: the service libraries must sleep through this very symbol.
extern "C" int clock_nanosleep(clockid_t, int, const timespec* duration, timespec*) {
    if (onSleep) onSleep(duration->tv_sec * 1'000'000'000 + duration->tv_nsec);
    return 0;
}

namespace {

class StandInDevice : public testing::Test {
  protected:
    StandInDevice() { device.reset(); }
    ~StandInDevice() override { onSleep = nullptr; }

    Device& device = Device::instance();
    const ServiceLibraries libraries;
    const ServiceClient client;
};

TEST_F(StandInDevice, EveryCall_IsAnsweredAndRecordedInSignatureOrder) {
    device.setKnob(7, 1);
    device.setProperty("vendor.perf.phr.enable", "1");
    device.setVerdict("com.game", 2);
    device.setGameWeight("com.game", 40);
    device.setHalVersion(2.2);
    int weightQuery[] = {1, 0};
    int otherQuery[] = {1, 1};
    int opcodes[] = {0x41444000, 0, 0x40C00000, 12};

    const struct {
        std::function<void()> call;
        const char* record;
    } cases[] = {
            {[&] { client.isFeatureEnabled(7); }, "IsFeatureEnabled(7) = 1"},
            {[&] { client.isFeatureEnabled(8); }, "IsFeatureEnabled(8) = 0"},
            {[&] { client.getProp("vendor.perf.phr.enable", "0"); },
             R"(perf_get_prop("vendor.perf.phr.enable", "0") = "1")"},
            {[&] { client.getProp("unset", "60"); }, R"(perf_get_prop("unset", "60") = "60")"},
            {[&] { client.getProp(nullptr, nullptr); }, R"(perf_get_prop((null), (null)) = "")"},
            {[&] { client.getFeedback(5633, "com.game"); },
             R"(perf_get_feedback(5633, "com.game") = 2)"},
            {[&] { client.getFeedback(5634, "com.game"); },
             R"(perf_get_feedback(5634, "com.game") = 0)"},
            {[&] { client.getFeedback(5633, nullptr); }, "perf_get_feedback(5633, (null)) = 0"},
            {[&] { client.getFeedbackExtn(5633, "com.game", 2, weightQuery); },
             R"(perf_get_feedback_extn(5633, "com.game", 2, {1, 0}) = 40)"},
            {[&] { client.getFeedbackExtn(5633, "com.other", 2, weightQuery); },
             R"(perf_get_feedback_extn(5633, "com.other", 2, {1, 0}) = -1)"},
            {[&] { client.getFeedbackExtn(5633, "com.game", 2, otherQuery); },
             R"(perf_get_feedback_extn(5633, "com.game", 2, {1, 1}) = -1)"},
            {[&] { client.getFeedbackExtn(5633, nullptr, 2, nullptr); },
             "perf_get_feedback_extn(5633, (null), 2, (null)) = -1"},
            {[&] { client.hint(5633, "com.game", 0, 1); },
             R"(perf_hint(5633, "com.game", 0, 1) = 40)"},
            {[&] { client.hint(4166, nullptr, 8, 1500); }, "perf_hint(4166, (null), 8, 1500) = 1"},
            {[&] { client.hint(5633, "com.game", 0, 2); },
             R"(perf_hint(5633, "com.game", 0, 2) = 2)"},
            {[&] { client.lockAcq(0, 100, opcodes, 4); },
             "perf_lock_acq(0, 100, {0x41444000, 0, 0x40c00000, 12}, 4) = 3"},
            {[&] { client.lockAcq(0, 0, nullptr, 2); }, "perf_lock_acq(0, 0, (null), 2) = 4"},
            {[&] { client.lockAcq(0, 0, opcodes, 0); }, "perf_lock_acq(0, 0, {}, 0) = 5"},
            {[&] { client.lockRel(3); }, "perf_lock_rel(3) = 0"},
            {[&] { client.lockRel(3); }, "perf_lock_rel(3) = -1"},
            {[&] { client.lockRel(6); }, "perf_lock_rel(6) = -1"},
            {[&] { client.getHalVersion(); }, "get_perf_hal_ver() = 2.2"},
    };
    for (const auto& [call, record] : cases) {
        device.clearEvents();
        call();
        const std::vector<Event> events = device.events();
        ASSERT_EQ(events.size(), 1u) << record;
        EXPECT_EQ(describe(events[0]), record);
    }
}

// The records hold what was answered; this is what reaches the caller.
TEST_F(StandInDevice, Answers_ReachTheCaller) {
    device.setProperty("name", "value");
    device.setKnob(7, 3);
    device.setVerdict("com.game", 2);
    device.setGameWeight("com.game", 40);
    int weightQuery[] = {1, 0};
    int opcodes[] = {0x41444000, 0};
    EXPECT_EQ(client.isFeatureEnabled(7), 3);
    EXPECT_STREQ(client.getProp("name", "0").value, "value");
    EXPECT_EQ(client.getFeedback(5633, "com.game"), 2);
    EXPECT_EQ(client.getFeedbackExtn(5633, "com.game", 2, weightQuery), 40);
    EXPECT_EQ(client.hint(4166, nullptr, 8, 1500), 1);
    EXPECT_EQ(client.lockAcq(0, 0, opcodes, 2), 2);
    EXPECT_EQ(client.lockRel(2), 0);
    EXPECT_DOUBLE_EQ(client.getHalVersion(), 2.3);
}

TEST_F(StandInDevice, LongProperty_IsCutToTheRecordWithItsTerminator) {
    device.setProperty("long", std::string(200, 'x'));
    EXPECT_STREQ(client.getProp("long", "").value, std::string(91, 'x').c_str());
    EXPECT_STREQ(client.getProp("unset", std::string(91, 'y').c_str()).value,
                 std::string(91, 'y').c_str());
}

TEST_F(StandInDevice, Delay_IsSleptAfterTheRecordAndWithoutTheLock) {
    device.setDelay(EntryPoint::kPerfHint, 2'500'000'001);
    std::vector<int64_t> sleeps;
    size_t recordedAtSleep = 0;
    onSleep = [&](int64_t durationNs) {
        sleeps.push_back(durationNs);
        recordedAtSleep = device.events().size();  // hangs if the lock were held
    };
    client.lockRel(1);
    client.hint(4166, nullptr, 8, 1500);
    EXPECT_EQ(sleeps, std::vector<int64_t>{2'500'000'001});
    EXPECT_EQ(recordedAtSleep, 2u);
}

TEST_F(StandInDevice, ConcurrentCalls_AreAllRecordedInOrderOfTheirTimes) {
    constexpr int kThreads = 4;
    constexpr int kCallsPerThread = 500;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([this] {
            for (int call = 0; call < kCallsPerThread; ++call) client.hint(4166, nullptr, 8, call);
        });
    }
    for (std::thread& thread : threads) thread.join();

    std::set<int> labels;
    std::set<std::string> handles;
    int64_t latestNs = 0;
    for (const Event& event : device.events()) {
        labels.insert(event.thread);
        handles.insert(event.result);
        EXPECT_GE(event.timeNs, latestNs);
        latestNs = event.timeNs;
    }
    EXPECT_EQ(labels.size(), size_t{kThreads});
    EXPECT_EQ(handles.size(), size_t{kThreads * kCallsPerThread});
}

}  // namespace
