#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "device/StandInDevice.h"

using namespace device;

namespace {

// As a library loaded by this program would bind it: among the symbols that the program exports.
template <typename Function>
Function* exported(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}

class PlatformSinks : public testing::Test {
  protected:
    PlatformSinks() { device.reset(); }

    StandInDevice& device = StandInDevice::instance();
    int (*const log)(int, const char*, const char*, ...) =
            exported<int(int, const char*, const char*, ...)>("__android_log_print");
    uint64_t (*const enabledTags)() = exported<uint64_t()>("atrace_get_enabled_tags");
    void (*const begin)(const char*) = exported<void(const char*)>("atrace_begin_body");
    void (*const end)() = exported<void()>("atrace_end_body");
};

TEST_F(PlatformSinks, LogLinesAndMarkers_AreRecordedInOrder) {
    ASSERT_TRUE(log && enabledTags && begin && end);
    device.setThreadLabeller([] { return 42; });
    begin("frame");
    log(3, "Cindral.PerfProxy", "%s=%d", "knob", 7);
    log(6, nullptr, "failed");
    end();
    device.setThreadLabeller(nullptr);

    const char* const expected[] = {"begin frame", "D Cindral.PerfProxy: knob=7",
                                    "E (null): failed", "end"};
    const std::vector<Event> events = device.events();
    ASSERT_EQ(events.size(), std::size(expected));
    for (size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(describe(events[i]), expected[i]);
        EXPECT_EQ(events[i].thread, 42);
    }
}

TEST_F(PlatformSinks, LogText_IsKeptWhateverItsLength) {
    for (const size_t length : {0u, 1u, 1023u, 1024u, 100'000u}) {
        device.clearEvents();
        const std::string text(length, 'x');
        log(3, "tag", "%s", text.c_str());
        EXPECT_EQ(device.events().at(0).text, text);
    }
}

TEST_F(PlatformSinks, TraceTags_AreThoseOfTheDevice) {
    EXPECT_EQ(enabledTags(), 0u);
    device.setTraceTags(1u << 1);
    EXPECT_EQ(enabledTags(), 1u << 1);
    device.reset();
    EXPECT_EQ(enabledTags(), 0u);
}

}  // namespace
