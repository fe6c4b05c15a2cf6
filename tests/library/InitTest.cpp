// What cindralInit decides, and from what.

#include <gtest/gtest.h>

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
