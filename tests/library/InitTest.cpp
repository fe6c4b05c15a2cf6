// What cindralInit decides, and from what.

#include <gtest/gtest.h>

#include <thread>

#include "tests/library/Compositor.h"

using standin::EntryPoint;

namespace {

struct Decision {
    const char* name;
    std::map<int, int> knobs;
    std::map<std::string, std::string> properties;
    bool active;
    const char* line;
    int propertiesRead;
};

void PrintTo(const Decision& decision, std::ostream* stream) {
    *stream << decision.name;
}

const Decision kDecisions[] = {
        {"everything off", {}, {}, false, "[GFAR:0][PHR:0]", 2},
        {"second generation alone",
         {{7, 1}},
         {{"vendor.perf.pfar2.enable", "1"}},
         true,
         "[GFAR:1][PHR:0]",
         2},
        {"first generation asks no further",
         {{5, 1}, {7, 1}},
         {{"vendor.perf.pfar.enable", "1"}, {"vendor.perf.pfar2.enable", "1"}},
         true,
         "[GFAR:1][PHR:0]",
         4},
        {"the headroom knob does not turn the frame regulator on",
         {{6, 1}},
         {{"vendor.perf.pfar.enable", "1"}, {"vendor.perf.phr.enable", "1"}},
         true,
         "[GFAR:0][PHR:1]",
         5},
        {"the frame-regulator knob does not turn headroom on",
         {{5, 1}},
         {{"vendor.perf.phr.enable", "1"}},
         false,
         "[GFAR:0][PHR:0]",
         5},
        {"zgpe takes the frame regulator back, not headroom",
         {{5, 1}, {6, 1}},
         {{"vendor.perf.pfar.enable", "1"},
          {"vendor.perf.phr.enable", "1"},
          {"ro.vendor.perf.zgpe", "false"}},
         true,
         "[GFAR:0][PHR:1]",
         4},
        {"zgpe must be the exact text",
         {{5, 1}},
         {{"vendor.perf.pfar.enable", "1"}, {"ro.vendor.perf.zgpe", "True"}},
         false,
         "[GFAR:0][PHR:0]",
         4},
        {"only the number 1 is on",
         {{5, 1}, {6, 1}, {7, 1}},
         {{"vendor.perf.pfar.enable", "2"},
          {"vendor.perf.phr.enable", "on"},
          {"vendor.perf.pfar2.enable", "-1"}},
         false,
         "[GFAR:0][PHR:0]",
         5},
        {"a knob is on whatever its number",
         {{5, 2}, {6, -1}},
         {{"vendor.perf.pfar.enable", "1"}, {"vendor.perf.phr.enable", "1"}},
         true,
         "[GFAR:1][PHR:1]",
         4},
        {"a hexadecimal 1 is not a 1",
         {{6, 1}},
         {{"vendor.perf.phr.enable", "0x1"}},
         false,
         "[GFAR:0][PHR:0]",
         5},
        {"blanks, zeros and trailing text around the 1 do not matter",
         {{6, 1}},
         {{"vendor.perf.phr.enable", " 001x"}},
         true,
         "[GFAR:0][PHR:1]",
         5},
};

class Init : public testing::TestWithParam<Decision> {};

Scene sceneOf(const Decision& decision) {
    Scene scene;
    scene.knobs = decision.knobs;
    scene.properties = decision.properties;
    return scene;
}

}  // namespace

TEST_P(Init, KnobsAndProperties_DecideTheFeatures) {
    const Decision& decision = GetParam();
    bool active = false;
    play(sceneOf(decision), [&](Compositor& compositor) { active = compositor.library.init(); });
    EXPECT_EQ(active, decision.active);
    ASSERT_EQ(logs().size(), 1U);
    EXPECT_EQ(logs().front().what, std::string("E Cindral: ") + decision.line);
    EXPECT_EQ(serviceCalls(EntryPoint::kPerfGetProp).size(),
              static_cast<size_t>(decision.propertiesRead));
}

INSTANTIATE_TEST_SUITE_P(Decisions, Init, testing::ValuesIn(kDecisions));

TEST(Init, FirstCall_ReadsKnobsAndPropertiesInTheirOrder) {
    Scene scene;
    scene.properties.clear();
    play(scene, [](Compositor& compositor) { compositor.library.init(); });
    const std::vector<std::string> expected = {
            "get_perf_hal_ver() = 2.3",
            "IsFeatureEnabled(5) = 1",
            "IsFeatureEnabled(6) = 1",
            R"(perf_get_prop("vendor.perf.pfar.enable", "0") = "0")",
            R"(perf_get_prop("vendor.perf.phr.enable", "0") = "0")",
            R"(perf_get_prop("vendor.perf.cindral.debug", "0") = "0")",
            "IsFeatureEnabled(7) = 1",
            R"(perf_get_prop("vendor.perf.pfar2.enable", "0") = "0")",
            R"(perf_get_prop("ro.vendor.perf.zgpe", "true") = "true")",
    };
    std::vector<std::string> seen;
    for (const Sight& call : serviceCalls()) seen.push_back(call.what);
    EXPECT_EQ(seen, expected);
}

TEST(Init, SecondCall_AnswersTheSameWithoutReadingAgain) {
    play(Scene(), [](Compositor& compositor) {
        EXPECT_TRUE(compositor.library.init());
        const size_t calls = serviceCalls().size();
        standin::Device::instance().setProperty("vendor.perf.pfar2.enable", "0");
        standin::Device::instance().setProperty("vendor.perf.phr.enable", "0");
        EXPECT_TRUE(compositor.library.init());
        EXPECT_EQ(serviceCalls().size(), calls);
    });
}

TEST(Init, AfterClearConfigs_LayersAreServedUntilTheNextInitDecidesAnew) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.library.clearConfigs();
        compositor.queue(kNoGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        EXPECT_EQ(serviceCalls(EntryPoint::kPerfGetFeedback).size(), 2U);

        standin::Device::instance().setProperty("vendor.perf.pfar2.enable", "0");
        standin::Device::instance().setProperty("vendor.perf.phr.enable", "0");
        EXPECT_FALSE(compositor.library.init());
        compositor.queue(kOtherGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        EXPECT_EQ(serviceCalls(EntryPoint::kPerfGetFeedback).size(), 2U);
    });
}

TEST(Init, Inactive_NoEntryPointDoesAnything) {
    Scene scene;
    scene.knobs.clear();
    play(scene, [](Compositor& compositor) {
        compositor.library.setVsyncPeriod(1);
        for (int round = 0; round < 2; ++round) {
            compositor.queue(kGame);
            compositor.consume(kGame);
            compositor.library.trackVsyncSignal();
            compositor.library.setVsyncPeriod(1);
            EXPECT_FALSE(compositor.library.init());
        }
        const size_t calls = serviceCalls().size();
        Compositor::waitUntil(kSecond);
        EXPECT_EQ(serviceCalls().size(), calls);
        EXPECT_EQ(serviceCalls(EntryPoint::kPerfGetFeedback).size(), 0U);
    });
}

TEST(Init, DecidedAnew_NothingOfTheFormerDecisionRemains) {
    play(Scene(), [](Compositor& compositor) {
        standin::Device& device = standin::Device::instance();
        ASSERT_TRUE(compositor.library.init());
        for (const int knob : {5, 6, 7}) device.setKnob(knob, 0);
        compositor.library.clearConfigs();
        EXPECT_FALSE(compositor.library.init());
        EXPECT_EQ(countOf("[GFAR:0][PHR:0]"), 1);
        device.setKnob(7, 1);
        compositor.library.clearConfigs();
        EXPECT_TRUE(compositor.library.init());
        EXPECT_EQ(countOf("[GFAR:1][PHR:0]"), 1);
        compositor.start(kGame);
        EXPECT_TRUE(markers().empty()) << "without knob 5 or 6 the debug switch is not read";
    });
}

TEST(Init, DecidedAnew_TheNewClientAnswers) {
    play(Scene().set("vendor.perf.cindral.debug", "0"), [](Compositor& compositor) {
        ASSERT_TRUE(compositor.library.init());
        standin::Device::instance().setProperty("vendor.perf.cindral.debug", "1");
        compositor.library.clearConfigs();
        compositor.start(kNoGame);
        EXPECT_EQ(countOf("isGameLayer:0 [" + kNoGame + "][com.example.video]"), 1);
    });
}

TEST(Init, FromTwoThreads_DecidesOnceAndBothHearTheAnswer) {
    play(Scene(), [](Compositor& compositor) {
        standin::Device::instance().setDelay(EntryPoint::kIsFeatureEnabled, kSecond);
        std::thread other([&] { EXPECT_TRUE(compositor.library.init()); });
        Compositor::waitUntil(kMs);
        EXPECT_TRUE(compositor.library.init());
        other.join();
        EXPECT_EQ(serviceCalls(EntryPoint::kIsFeatureEnabled).size(), 3U);
    });
}

TEST(Init, Deactivated_TrackedLayersAreServedNoMoreAndNoPeriodIsStored) {
    play(Scene().headroomOnly(), [](Compositor& compositor) {
        standin::Device& device = standin::Device::instance();
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
        device.setProperty("vendor.perf.phr.enable", "0");
        compositor.library.clearConfigs();
        ASSERT_FALSE(compositor.library.init());
        const size_t seen = device.events().size();
        compositor.library.setVsyncPeriod(123);
        for (int i = 0; i < 8; ++i) {
            compositor.queue(kGame);
            compositor.library.trackVsyncSignal();
            compositor.consume(kGame, 0);
            Compositor::waitUntil(Compositor::now() + 100 * kMs);
        }
        EXPECT_EQ(device.events().size(), seen);

        device.setProperty("vendor.perf.phr.enable", "1");
        compositor.library.clearConfigs();
        ASSERT_TRUE(compositor.library.init());
        compositor.queue(kOtherGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        EXPECT_EQ(countOf("unexpected vsync recevied: ld\n"), 0);
    });
}
