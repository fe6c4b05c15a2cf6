// The modelled loop: rules that hold in every run of it.

#include "replay/play/Work.h"
#include "tests/replay/Replay.h"

namespace {

using nlohmann::json;

TEST_F(Replay, ModelledLoop_NeverDeliversAFrameThatTookNoTime) {
    // As captured, a thread that comes back late finds frames that were due long ago.
    const std::string captured = capture("captured");
    EXPECT_GT(jsonOf(captured)["figures"]["zero_render_times"], 0);
    for (const char* options :
         {"--model", "--model --work interval", "--model --work percent:80 --buffers 4",
          "--model --work fixed:0.2 --buffers 5", "--model --boost-speedup 1000"}) {
        const std::string arguments = captured + " " + options;
        const json run = jsonOf(arguments);
        ASSERT_GT(run["frames"].size(), 1000u) << arguments;
        EXPECT_GT(run["figures"]["frames_held"], 0) << arguments;
        EXPECT_EQ(run["figures"]["zero_render_times"], 0) << arguments;
        // The strongest boost leaves an eleventh.
        const int64_t least = replay::kMinWorkNs / 11;
        int64_t previous = 0;
        for (const json& frame : run["frames"]) {
            ASSERT_GE(frame["render_ns"], previous == 0 ? 0 : least) << arguments << frame;
            ASSERT_EQ(frame["due_ns"], frame["queued_ns"]) << arguments << frame;
            ASSERT_GT(frame["queued_ns"], previous) << arguments << frame;
            previous = frame["returned_ns"];
        }
    }
}

// Without the library a game that runs ahead is held by its buffers alone: each one more makes a
// frame wait one vsync longer.
TEST_F(Replay, ModelledLoop_WithoutTheLibraryEachBufferCostsAVsyncOfLatency) {
    double previous = 0;
    for (const int buffers : {2, 3, 4}) {
        const json figures =
                jsonOf("--workload steady --no-library --buffers " + std::to_string(buffers))
                        .at("figures");
        EXPECT_EQ(figures["frames"], 1800) << buffers;
        EXPECT_EQ(figures["stutters"], 0) << buffers;
        EXPECT_EQ(figures["held_total_s"], 0) << buffers;
        EXPECT_NEAR(figures["frames_per_second"], 60, 0.1) << buffers;
        const double latency = figures["latency_p50_ms"];
        if (buffers > 2) {
            EXPECT_NEAR(latency - previous, 16.667, 0.01) << buffers;
        }
        previous = latency;
    }
}

TEST_F(Replay, HintEffects_ChangeFramesOnlyAsFarAsStated) {
    const std::string heavy = "--workload heavy --frames 600";
    const auto fps = [&](const std::string& effects) {
        return jsonOf(heavy + effects).at("figures").at("frames_per_second").get<double>();
    };
    EXPECT_EQ(fps(""), fps(" --boost-speedup 0 --negative-slowdown 0"));
    EXPECT_GT(fps(" --boost-speedup 50"), 1.005 * fps(""));
    const std::string light = "--workload light --frames 600 --set vendor.perf.phr.enable=0";
    const auto render = [&](const std::string& effects) {
        return jsonOf(light + effects)
                .at("conditions")
                .at("negative boost effect")
                .get<std::string>();
    };
    EXPECT_EQ(render(""), "none assumed");
    EXPECT_NE(render(" --negative-slowdown 100").find("100 %"), std::string::npos);
}

}  // namespace
