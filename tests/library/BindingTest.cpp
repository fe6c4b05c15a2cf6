// What remains of the library when the service, or parts of it, are missing.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

TEST(Binding, MissingPiece_IsLoggedOnceAndAnsweredWithItsFallback) {
    // Whether the library is active, the game is recognised, and how many locks are taken.
    using Fallback = std::tuple<std::string, std::string, bool, bool, size_t>;
    // Binding stops at the first missing entry point, so everything behind it is missing too.
    for (const auto& [missing, line, active, tracked, locks] :
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
          Fallback{"get_perf_hal_ver", "", true, true, 2},
          Fallback{"perf_get_feedback_extn", "", true, true, 2}}) {
        SCOPED_TRACE(missing);
        Scene scene;
        scene.without = {missing};
        play(scene, [&, line = line, active = active, tracked = tracked](Compositor& compositor) {
            EXPECT_EQ(compositor.library.init(), active);
            compositor.library.setVsyncPeriod(kPeriod60);
            const std::vector<std::string> errors = linesOf({"E Cindral.PerfProxy"});
            ASSERT_EQ(errors.size(), line.empty() ? 0U : 1U);
            if (!line.empty()) {
                EXPECT_EQ(errors[0].rfind("E Cindral.PerfProxy: Unable to " + line, 0), 0U)
                        << errors[0];
                const bool isOpen = line.rfind("open", 0) == 0;
                EXPECT_EQ(errors[0].substr(errors[0].size() - 2) == "\n.", isOpen);
            }
            // A tracked layer's measurements appear, whatever else is missing.
            compositor.play(kGame, 220);
            EXPECT_EQ(countOf("FPS:60.00[" + kGame + "]"), tracked ? 3 : 0);
        });
        EXPECT_EQ(linesOf({"perf_lock_acq(", "perf_lock_rel("}).size(), locks);
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
        EXPECT_EQ(linesOf({"extn(5633", "perf_hint(5633"}), asked) << halVersion;
        const std::string weight = asked.empty() ? "-1" : "1";
        EXPECT_EQ(countOf("GameWeight:" + weight + " [" + kGame + "][com.example.game]"), 1);
    }
}
