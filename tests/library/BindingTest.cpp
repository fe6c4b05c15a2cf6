// What remains of the library when the service, or parts of it, are missing.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

TEST(Binding, MissingPiece_IsLoggedOnceAndAnsweredWithItsFallback) {
    struct Fallback {
        const char* missing;
        const char* line;  // the one error, as its text begins
        bool active;
        bool tracked;  // a game is recognised
        int locks;     // taken and handed back by power optimisation
    };
    // Binding stops at the first missing entry point, so everything behind it is missing too.
    for (const Fallback& fallback :
         {Fallback{"libskewknob_system.so",
                   "open libskewknob_system.so: libskewknob_system.so: ", false, false, 0},
          Fallback{"libnuv-perfd-client_system.so", "open libnuv-perfd-client_system.so: libnuv",
                   false, false, 0},
          Fallback{"IsFeatureEnabled", "find IsFeatureEnabled function.\n", false, false, 0},
          Fallback{"perf_get_prop", "find perf_get_prop function.\n", false, false, 0},
          Fallback{"perf_get_feedback", "find perf_get_feedback function.\n", true, false, 0},
          Fallback{"perf_hint", "find perf_hint function.\n", true, true, 0},
          Fallback{"perf_lock_acq", "find perf_lock_acq function.\n", true, true, 0},
          Fallback{"perf_lock_rel", "find perf_lock_rel function.\n", true, true, 2},
          Fallback{"get_perf_hal_ver", nullptr, true, true, 2},
          Fallback{"perf_get_feedback_extn", nullptr, true, true, 2}}) {
        SCOPED_TRACE(fallback.missing);
        Scene scene;
        scene.without = {fallback.missing};
        play(scene, [&](Compositor& compositor) {
            EXPECT_EQ(compositor.library.init(), fallback.active);
            compositor.library.setVsyncPeriod(kPeriod60);
            std::vector<std::string> errors;
            for (const Sight& line : logs()) {
                if (line.what.rfind("E Cindral.PerfProxy", 0) == 0) errors.push_back(line.what);
            }
            ASSERT_EQ(errors.size(), fallback.line != nullptr ? 1U : 0U);
            if (fallback.line != nullptr) {
                const std::string text = std::string("Unable to ") + fallback.line;
                EXPECT_EQ(errors[0].find(text), strlen("E Cindral.PerfProxy: ")) << errors[0];
                const bool isOpen = text.find("open") != std::string::npos;
                EXPECT_EQ(errors[0].substr(errors[0].size() - 2) == "\n.", isOpen);
            }
            // A tracked layer's measurements appear, whatever else is missing.
            compositor.play(kGame, 220);
            EXPECT_EQ(countOf("FPS:60.00[" + kGame + "]"), fallback.tracked ? 3 : 0);
        });
        int locks = 0;
        for (const Sight& call : serviceCalls()) locks += call.what.rfind("perf_lock", 0) == 0;
        EXPECT_EQ(locks, fallback.locks);
    }
}

TEST(Binding, GameWeight_IsAskedInTheWayOfTheServicesVersion) {
    const std::string asExtension =
            R"(perf_get_feedback_extn(5633, "com.example.game", 2, {1, 0}) = 1)";
    const std::string asHint = R"(perf_hint(5633, "com.example.game", 0, 1) = 1)";
    struct Query {
        double halVersion;
        std::vector<std::string> without;
        std::vector<std::string> asked;
    };
    for (const auto& [halVersion, without, asked] :
         {Query{2.3, {}, {asExtension}}, Query{2.21, {}, {asExtension}}, Query{2.2, {}, {asHint}},
          Query{2.3, {"get_perf_hal_ver"}, {asHint}}, Query{2.3, {"perf_get_feedback_extn"}, {}}}) {
        Scene scene;
        scene.halVersion = halVersion;
        scene.without = without;
        play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.play(kGame, 70);
        });
        std::vector<std::string> calls;
        for (const Sight& call : serviceCalls()) {
            const bool isVerdict = call.what.find("perf_get_feedback(") != std::string::npos;
            if (call.what.find("5633") != std::string::npos && !isVerdict)
                calls.push_back(call.what);
        }
        EXPECT_EQ(calls, asked) << halVersion;
        const std::string weight = asked.empty() ? "-1" : "1";
        EXPECT_EQ(countOf("GameWeight:" + weight + " [" + kGame + "][com.example.game]"), 1);
    }
}
