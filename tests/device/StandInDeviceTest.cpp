#include <dlfcn.h>
#include <gtest/gtest.h>
#include <time.h>

#include <functional>
#include <sstream>

#include "device/Process.h"
#include "device/StandInDevice.h"
#include "tests/ErrorOf.h"
#include "tests/device/ServiceClient.h"

using namespace device;

namespace {

std::function<void(int64_t)> onSleep;

}  // namespace

// Stands where virtual time would: the service libraries must sleep through this very symbol.
extern "C" int clock_nanosleep(clockid_t, int, const timespec* duration, timespec*) {
    if (onSleep) onSleep(duration->tv_sec * 1'000'000'000 + duration->tv_nsec);
    return 0;
}

namespace {

class ServiceCalls : public testing::Test {
  protected:
    ServiceCalls() { device.reset(); }
    ~ServiceCalls() override { onSleep = nullptr; }

    StandInDevice& device = StandInDevice::instance();
    const ServiceLibraries libraries;
    const ServiceClient client;
};

TEST_F(ServiceCalls, EveryCall_IsAnsweredAndRecordedInSignatureOrder) {
    device.setKnob(7, 3);
    device.setProperty("vendor.perf.phr.enable", "1");
    device.setVerdict("com.game", 2);
    device.setGameWeight("com.game", 40);
    device.setHalVersion(2.2);
    int weightQuery[] = {1, 0};
    int otherQuery[] = {1, 1};
    int opcodes[] = {0x41444000, 0, 0x40C00000, 12};
    const auto& c = client;
    std::string records;
    // Notes the call, whose record tells the answer, if the caller heard the same.
    const auto note = [&](const auto& heard) {
        std::ostringstream answer;
        answer << heard;
        for (const Event& event : device.events()) {
            records += describe(event) + (event.result == answer.str() ? "\n" : " unheard\n");
        }
        device.clearEvents();
    };
    for (const int knob : {7, 8}) note(c.isFeatureEnabled(knob));
    note(c.getProp("vendor.perf.phr.enable", "0").value);
    note(c.getProp("unset", "60").value);
    note(c.getProp(nullptr, nullptr).value);
    note(c.getFeedback(5633, "com.game"));
    note(c.getFeedback(5634, "com.game"));
    note(c.getFeedback(5633, nullptr));
    note(c.getFeedbackExtn(5633, "com.game", 2, weightQuery));
    note(c.getFeedbackExtn(5633, "com.other", 2, weightQuery));
    note(c.getFeedbackExtn(5633, "com.game", 2, otherQuery));
    note(c.getFeedbackExtn(5633, nullptr, 2, nullptr));
    note(c.hint(5633, "com.game", 0, 1));
    note(c.hint(4166, nullptr, 8, 1500));
    note(c.hint(5633, "com.game", 0, 2));
    note(c.lockAcq(0, 100, opcodes, 4));
    note(c.lockAcq(0, 0, nullptr, 2));
    note(c.lockAcq(0, 0, opcodes, 0));
    for (const int handle : {3, 3, 6}) note(c.lockRel(handle));
    note(c.getHalVersion());
    EXPECT_EQ(records, R"(IsFeatureEnabled(7) = 3
IsFeatureEnabled(8) = 0
perf_get_prop("vendor.perf.phr.enable", "0") = "1"
perf_get_prop("unset", "60") = "60"
perf_get_prop((null), (null)) = ""
perf_get_feedback(5633, "com.game") = 2
perf_get_feedback(5634, "com.game") = 0
perf_get_feedback(5633, (null)) = 0
perf_get_feedback_extn(5633, "com.game", 2, {1, 0}) = 40
perf_get_feedback_extn(5633, "com.other", 2, {1, 0}) = -1
perf_get_feedback_extn(5633, "com.game", 2, {1, 1}) = -1
perf_get_feedback_extn(5633, (null), 2, (null)) = -1
perf_hint(5633, "com.game", 0, 1) = 40
perf_hint(4166, (null), 8, 1500) = 1
perf_hint(5633, "com.game", 0, 2) = 2
perf_lock_acq(0, 100, {0x41444000, 0, 0x40c00000, 12}, 4) = 3
perf_lock_acq(0, 0, (null), 2) = 4
perf_lock_acq(0, 0, {}, 0) = 5
perf_lock_rel(3) = 0
perf_lock_rel(3) = -1
perf_lock_rel(6) = -1
get_perf_hal_ver() = 2.2
)");
}

TEST_F(ServiceCalls, LongProperty_IsCutToTheRecordWithItsTerminator) {
    device.setProperty("long", std::string(200, 'x'));
    EXPECT_EQ(std::string(client.getProp("long", "").value, 92), std::string(92, 'x')) << "no end";
    EXPECT_STREQ(client.getProp("unset", std::string(91, 'y').c_str()).value,
                 std::string(91, 'y').c_str());
}

TEST_F(ServiceCalls, Delay_IsSleptAfterTheRecordAndWithoutTheLock) {
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

// A library loaded by this program binds the platform's log among the symbols that the program exports.
TEST_F(ServiceCalls, LogText_IsKeptWhateverItsLength) {
    auto* const log = reinterpret_cast<int (*)(int, const char*, const char*, ...)>(
            dlsym(RTLD_DEFAULT, "__android_log_print"));
    for (const size_t length : {0u, 1u, 1023u, 1024u, 100'000u}) {
        device.clearEvents();
        const std::string text(length, 'x');
        log(6, nullptr, "%s", text.c_str());
        EXPECT_EQ(describe(device.events().at(0)), "E (null): " + text);
    }
}

TEST(ServiceLibraries, ImpossibleWish_IsRefusedWithItsNameAndLeavesNothingOpen) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
            {{"perf_hnit"}, "\"perf_hnit\""},
            {{"perf_hint", "perf_lock_acq"}, "libnuv-perfd-client_system.so"},
    };
    for (const auto& test : cases) {
        const std::string error =
                errorOf([&] { const device::ServiceLibraries libraries(test.first); });
        EXPECT_NE(error.find(test.second), std::string::npos) << error;
        EXPECT_FALSE(device::isMapped("libskewknob_system.so"));
    }
}

}  // namespace
