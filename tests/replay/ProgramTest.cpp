// The program as its user runs it.

#include <algorithm>
#include <string>

#include "tests/replay/Program.h"

namespace {

std::string event(const std::string& time, const std::string& counter, int value) {
    return "a-1 [000] .... " + time + ": tracing_mark_write: C|1|" + counter + "|" +
           std::to_string(value) + "\n";
}

std::string layerEvents(const std::string& package) {
    const std::string counter = "SurfaceView - " + package + "/.Main#0";
    return event("1.000000", counter, 0) + event("1.010000", counter, 1) +
           event("1.020000", counter, 0);
}

TEST_F(Program, BadInput_GivesOneLineAndStatusTwo) {
    const std::string garbage = file("garbage", "# fine\nnot a trace\n");
    const std::string one = file("one", layerEvents("a.b"));
    const std::string two = file("two", layerEvents("a.b") + layerEvents("c.d"));
    const std::pair<std::string, std::string> kCases[] = {
            {garbage, garbage + ":2: not an ftrace event"},
            {file("empty", ""), "no layer"},
            {path("absent"), "No such file"},
            {mFolder, "cannot be read"},
            {one, "--refresh HZ"},
            {one + " --refresh 1e9", "--refresh"},
            {one + " --refresh sixty", "--refresh"},
            {one + " --layer '['", "not a regular expression"},
            {one + " --layer other", "matches none of: SurfaceView[a.b/.Main](BLAST)#0"},
            {two + " --refresh 60",
             "SurfaceView[a.b/.Main](BLAST)#0, SurfaceView[c.d/.Main](BLAST)#0"},
            {two + " --refresh 60 --layer SurfaceView", "choose one layer"},
            {"--set vendor.perf.phr.enable=2", "give 0 or 1"},
            {"--set", "--set"},
            {"--cpu-cost -1", "--cpu-cost"},
            {"--frobnicate", "--frobnicate"},
            {one + " " + two + " --log", "show one run"},
            {one + " " + two + " --report " + path("x"), "one capture"},
            {"--log --compare none", "show one run"},
            {"--trace " + path("x.txt"), ".pftrace"},
            {"--work interval", "belong to --model"},
            {"--model --work longest", "shortest-after-stall"},
            {"--model --work percent:120", "at most 100"},
            {"--model --work fixed:-1", "above 0"},
            {"--model --buffers 1", "--buffers"},
            {"--workload sloth", "steady"},
            {"--workload steady " + one, "leave"},
            {"--workload steady --refresh 0", "--refresh"},
            {"--frames 9", "--workload"},
            {"--compare ''", "no change"},
            {"--compare 'off: phr=no'", "on or off"},
            {"--compare library", "give PROPERTY=VALUE"},
            {"--compare buffers=x", "whole number"},
            {"record " + path("absent"), "No such file"},
            {"check " + one, "cindral-replay record"},
            {"check " + one + " --expectation " + garbage, "not an expectation"},
            {"record " + one + " " + two + " --expectation x", "one capture"},
            {one + " --write-capture " + path("x"), "--write-capture"},
            {"--library " + path("absent.so"), "absent.so"},
    };
    for (const auto& [arguments, expected] : kCases) {
        SCOPED_TRACE(arguments);
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err.rfind("cindral-replay: ", 0), 0u) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find(expected), std::string::npos) << result.err;
    }
}

TEST_F(Program, OutputThatCannotBeWritten_IsAnError) {
    for (const char* arguments :
         {"", "--timeline", "--list-layers", "--help", "--version", "--compare none", "--json -"}) {
        const Result result = run(arguments, "/dev/full");
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_NE(result.err.find("standard output"), std::string::npos) << arguments << result.err;
    }
    EXPECT_EQ(run("--write-capture /dev/full").status, 1);
    for (const char* option : {"--write-capture", "--json", "--report"}) {
        const std::string arguments = std::string(option) + " " + path("no/such/folder");
        EXPECT_EQ(run(arguments).status, 1) << arguments;
    }
}

TEST_F(Program, TwoRuns_AreByteForByteTheSame) {
    for (const char* arguments :
         {"--log", "--timeline --cpu-cost 1500", "--model --timeline",
          "--workload bursts --boost-speedup 20 --negative-slowdown 50 --log",
          "--compare none --compare phr=off", "--work all --model"}) {
        const Result first = run(arguments);
        EXPECT_EQ(first.status, 0) << arguments << first.err;
        EXPECT_GT(first.out.size(), 500u) << arguments;
        EXPECT_TRUE(first.out == run(arguments).out) << arguments;
    }
}

TEST_F(Program, WrittenCapture_ReplaysLikeTheModelledSession) {
    ASSERT_EQ(run("--write-capture " + path("model")).status, 0);
    // All but the first rows, which name the source.
    const auto afterSource = [](const std::string& text) {
        const size_t layer = text.find("  layer ");
        return layer == std::string::npos ? "no layer row" : text.substr(layer);
    };
    EXPECT_TRUE(afterSource(run(path("model") + " --timeline").out) ==
                afterSource(run("--timeline").out));
    EXPECT_NE(run(path("model") + " --list-layers").out.find("SurfaceView[com.example.game/"),
              std::string::npos);
}

TEST_F(Program, EveryProperty_ChangesWhatIsShown) {
    const auto shown = [&](const std::string& arguments) {
        nlohmann::json run = jsonOf("--workload bursts --frames 600 " + arguments);
        run.erase("conditions");
        nlohmann::json actions;
        for (const nlohmann::json& entry : run["log"]) {
            if (entry["action"]) actions.push_back(entry);
        }
        run["log"] = actions;
        return run;
    };
    const std::string firstGeneration = "--set vendor.perf.pfar2.enable=0";
    const nlohmann::json usual = shown("");
    for (const char* change :
         {"ro.vendor.perf.zgpe=false", "vendor.perf.cindral.debug=0",
          "vendor.perf.pfar2.boost_level=3", "vendor.perf.pfar2.disable_core_ctl=0",
          "vendor.perf.pfar2.disable_pl=0", "vendor.perf.pfar2.enable=0",
          "vendor.perf.pfar2.hgpe.enable=0", "vendor.perf.pfar2.hgpe.max_neboost=-10",
          "vendor.perf.pfar2.hgpe.max_rendertime=70", "vendor.perf.phr.enable=0",
          "vendor.perf.phr.hr_min_rate=0.7"}) {
        EXPECT_NE(shown(std::string("--set ") + change), usual) << change;
    }
    EXPECT_NE(shown(firstGeneration + " --set vendor.perf.pfar.enable=1"), shown(firstGeneration));
}

// The first number of the summary's row, -1 without such a row.
double figure(const std::string& summary, const std::string& label) {
    const size_t row = summary.find("\n  " + label + " ");
    if (row == std::string::npos) return -1;
    return std::atof(summary.c_str() + summary.find_first_of("0123456789", row + 4 + label.size()));
}

TEST_F(Program, ModelledSession_ShowsEveryKindOfHelp) {
    const Result result = run("");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("[GFAR:1][PHR:1]"), std::string::npos);
    for (const char* label : {"checkpoint 1", "checkpoint 2", "checkpoint 3", "releases",
                              "time boosted", "frames held", "PL off", "core control off",
                              "frame regulator on", "headroom regulator on", "negative releases"}) {
        EXPECT_GE(figure(result.out, label), label == std::string("negative releases") ? 0 : 0.001)
                << label << "\n"
                << result.out;
    }
}

TEST_F(Program, SwitchedOffFeatures_DoNothing) {
    const std::string noPhr = run("--set vendor.perf.phr.enable=0").out;
    EXPECT_EQ(figure(noPhr, "frames held"), 0) << noPhr;
    EXPECT_GT(figure(noPhr, "checkpoint 2"), 0) << noPhr;
    const std::string nothing =
            run("--set vendor.perf.phr.enable=0 --set vendor.perf.pfar2.enable=0").out;
    EXPECT_NE(nothing.find("[GFAR:0][PHR:0]"), std::string::npos) << nothing;
    EXPECT_EQ(figure(nothing, "checkpoint 2"), 0) << nothing;
    EXPECT_NE(nothing.find("environment built       never"), std::string::npos) << nothing;
}

}  // namespace
