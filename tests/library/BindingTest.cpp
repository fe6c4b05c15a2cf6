// What remains of the library when the service, or parts of it, are missing.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

using standin::EntryPoint;

namespace {

struct Fallback {
    const char* missing;
    const char* line;  // the one error, as its text begins; none when null
    bool active;
    bool tracked;  // a game is recognised
};

void PrintTo(const Fallback& fallback, std::ostream* stream) {
    *stream << fallback.missing;
}

// Binding stops at the first missing entry point, so everything behind it is missing too.
const Fallback kFallbacks[] = {
        {"libskewknob_system.so",
         "E Cindral.PerfProxy: Unable to open libskewknob_system.so: libskewknob_system.so: cannot "
         "open",
         false, false},
        {"libnuv-perfd-client_system.so",
         "E Cindral.PerfProxy: Unable to open libnuv-perfd-client_system.so: libnuv-perfd-client",
         false, false},
        {"IsFeatureEnabled", "E Cindral.PerfProxy: Unable to find IsFeatureEnabled function.\n",
         false, false},
        {"perf_get_prop", "E Cindral.PerfProxy: Unable to find perf_get_prop function.\n", false,
         false},
        {"perf_get_feedback", "E Cindral.PerfProxy: Unable to find perf_get_feedback function.\n",
         true, false},
        {"perf_hint", "E Cindral.PerfProxy: Unable to find perf_hint function.\n", true, true},
        {"perf_lock_acq", "E Cindral.PerfProxy: Unable to find perf_lock_acq function.\n", true,
         true},
        {"perf_lock_rel", "E Cindral.PerfProxy: Unable to find perf_lock_rel function.\n", true,
         true},
        {"get_perf_hal_ver", nullptr, true, true},
        {"perf_get_feedback_extn", nullptr, true, true},
};

class Binding : public testing::TestWithParam<Fallback> {};

std::vector<std::string> bindingErrors() {
    std::vector<std::string> errors;
    for (const Sight& line : logs()) {
        if (line.what.rfind("E Cindral.PerfProxy", 0) == 0) errors.push_back(line.what);
    }
    return errors;
}

}  // namespace

TEST_P(Binding, MissingPiece_IsLoggedOnceAndAnsweredWithItsFallback) {
    const Fallback& fallback = GetParam();
    Scene scene;
    scene.without = {fallback.missing};
    play(scene, [&](Compositor& compositor) {
        EXPECT_EQ(compositor.library.init(), fallback.active);
        compositor.library.setVsyncPeriod(kPeriod60);
        const std::vector<std::string> errors = bindingErrors();
        ASSERT_EQ(errors.size(), fallback.line != nullptr ? 1U : 0U);
        if (fallback.line != nullptr) {
            EXPECT_EQ(errors[0].rfind(fallback.line, 0), 0U) << errors[0];
        }
        // A tracked layer's measurements appear, whatever else is missing.
        compositor.play(kGame, 70);
        EXPECT_EQ(countOf("FPS:60.00[" + kGame + "]"), fallback.tracked ? 1 : 0);
    });
}

INSTANTIATE_TEST_SUITE_P(Fallbacks, Binding, testing::ValuesIn(kFallbacks));

namespace {

struct WeightQuery {
    double halVersion;
    const char* missing;
    const char* call;  // the query, or null for none
};

const WeightQuery kWeightQueries[] = {
        {2.3, "", R"(perf_get_feedback_extn(5633, "com.example.game", 2, {1, 0}) = 1)"},
        {2.2, "", R"(perf_hint(5633, "com.example.game", 0, 1) = 1)"},
        {2.3, "get_perf_hal_ver", R"(perf_hint(5633, "com.example.game", 0, 1) = 1)"},
        {2.3, "perf_get_feedback_extn", nullptr},
};

}  // namespace

TEST(Binding, GameWeight_IsAskedInTheWayOfTheServicesVersion) {
    for (const WeightQuery& query : kWeightQueries) {
        Scene scene;
        scene.halVersion = query.halVersion;
        if (*query.missing != '\0') scene.without = {query.missing};
        play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.play(kGame, 70);
        });
        std::vector<std::string> asked;
        for (const Sight& call : serviceCalls()) {
            if (call.what.find("5633") != std::string::npos &&
                call.what.find("perf_get_feedback(") == std::string::npos) {
                asked.push_back(call.what);
            }
        }
        const std::vector<std::string> expected = query.call != nullptr
                                                          ? std::vector<std::string>{query.call}
                                                          : std::vector<std::string>{};
        EXPECT_EQ(asked, expected) << query.halVersion << " without " << query.missing;
        const char* weight = query.call != nullptr ? "1" : "-1";
        EXPECT_EQ(
                countOf("GameWeight:" + std::string(weight) + " [" + kGame + "][com.example.game]"),
                1);
    }
}
