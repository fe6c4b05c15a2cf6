// The program as its user runs it: what it takes, refuses and leaves behind.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "tests/replay/Replay.h"

namespace {

namespace fs = std::filesystem;

std::string event(const std::string& time, const std::string& counter, int value) {
    return "a-1 [000] .... " + time + ": tracing_mark_write: C|1|" + counter + "|" +
           std::to_string(value) + "\n";
}

std::string layerEvents(const std::string& package) {
    const std::string counter = "SurfaceView - " + package + "/.Main#0";
    return event("1.000000", counter, 0) + event("1.010000", counter, 1) +
           event("1.020000", counter, 0);
}

TEST_F(Replay, BadInput_GivesOneLineAndStatusTwo) {
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
            {two + " --refresh 60 --join", "queue at the same time"},
            {one + " --refresh 60 --from 0.015", "between --from and --to"},
            {one + " --refresh 60 --from 2", "the capture ends at 0.020 s"},
            {one + " --refresh 60 --to 1f", "has 1 frames"},
            {one + " --from soon", "give seconds as in 2.5"},
            {"--workload steady --from 1", "are for captures"},
            {"--set", "--set"},
            {"--set vendor.perf.phr.enabled=1", "did you mean vendor.perf.phr.enable?"},
            {"--set vendor.perf.phr.enable=on", "0 or 1"},
            {"--set vendor.perf.phr.enable=2", "give 0 or 1"},
            {"--set vendor.perf.pfar2.boost_level=5", "whole number from 0 to 4"},
            {"--set vendor.perf.pfar2.boost_level=1.5", "whole number from 0 to 4"},
            {"--set vendor.perf.pfar2.hgpe.max_neboost=30", "whole number from -100 to 0"},
            {"--set vendor.perf.phr.hr_min_rate=half", "number from 0 to 1"},
            {"--set vendor.perf.phr.hr_min_rate=nan", "number from 0 to 1"},
            {"--set ro.vendor.perf.zgpe=True", "true or false"},
            {"--set vendor.perf.phr.enable", "PROPERTY=VALUE"},
            {"--set =1", "PROPERTY=VALUE"},
            {"--cpu-cost -1", "--cpu-cost"},
            {"--frobnicate", "--frobnicate"},
            {one + " " + two + " --log", "show one run"},
            {one + " " + two + " --report " + path("x"), "one capture"},
            {"--log --compare none", "show one run"},
            {"--trace " + path("x.txt"), ".pftrace"},
            {one + " --work interval", "belong to --model"},
            {one + " --model --work longest", "inferred"},
            {one + " --model --work percent:120", "at most 100"},
            {one + " --model --work fixed:-1", "above 0"},
            {"--work interval", "a workload says itself"},
            {"--buffers 1", "--buffers"},
            {"--list-layers", "for captures"},
            {"--compare captured", "always modelled"},
            {"--workload sloth", "steady"},
            {"--workload steady " + one, "leave"},
            {"--frames 9 " + one, "--workload"},
            {"--workload steady --refresh 0", "--refresh"},
            {"--compare ''", "no change"},
            {"--compare 'off: phr=no'", "on or off"},
            {"--compare library", "give PROPERTY=VALUE"},
            {"--compare buffers=x", "whole number"},
            {"record " + path("absent"), "No such file"},
            {"check " + one, "cindral-replay record"},
            {"check " + one + " --expectation " + garbage, "not an expectation"},
            {"record " + one + " " + two + " --expectation x", "one capture"},
            {"record " + one + " --compare none", "record does nothing with --compare"},
            {"check " + one + " --set vendor.perf.phr.enable=0", "check does nothing with --set"},
            {"check " + one + " --from 1", "check does nothing with --from"},
            {one + " --list-layers --json x", "--list-layers does nothing with --json"},
            {"--write-capture x --log", "--write-capture does nothing with --log"},
            {"--json x gather rows --table y", "command the program does nothing with --json"},
            {"--json-events", "belongs to --json"},
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
        EXPECT_TRUE(has(result.err, expected)) << result.err;
    }
}

TEST_F(Replay, OutputThatCannotBeWritten_IsAnError) {
    const std::string captured = capture("captured", "--frames 60");
    for (const std::string& arguments :
         {std::string("--frames 60"), captured + " --list-layers", std::string("--help"),
          std::string("--version"), std::string("--compare none"), std::string("--json -")}) {
        const Result result = run(arguments, "/dev/full");
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_TRUE(has(result.err, "standard output")) << arguments << result.err;
    }
    EXPECT_EQ(run("--write-capture /dev/full").status, 1);
    for (const char* option : {"--write-capture ", "--json ", "--report "}) {
        EXPECT_EQ(run(option + path("no/such/folder")).status, 1) << option;
    }
}

TEST_F(Replay, Outputs_NeverReplaceAnInputNorWhatSomebodyElseWrote) {
    const std::string captured = capture("captured", "--frames 60");
    const std::string before = read("captured");
    fs::create_symlink(captured, path("link"));
    fs::create_hard_link(captured, path("hard"));
    file("notes", "mine");
    const std::pair<std::string, const char*> kCases[] = {
            {captured + " --json " + captured, "is the input"},
            {captured + " --report " + path("link"), "is the input"},
            {path("link") + " --json " + path("hard"), "is the input"},
            {captured + " --json " + path("no/../captured"), "is the input"},
            {"record " + captured + " --expectation " + path("hard"), "is the input"},
            {"--json " + captured, "nothing that this option writes"},
            {captured + " --report " + path("notes"), "nothing that this option writes"},
            {captured + " --json " + path("x") + " --report " + path("./x"), "--json writes"},
            {captured + " --library " + path("absent.so") + " --json " + path("notes") + " --force",
             "absent.so"},
    };
    for (const auto& [arguments, expected] : kCases) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 2) << arguments;
        EXPECT_TRUE(has(result.err, expected)) << arguments << result.err;
        EXPECT_EQ(read("captured"), before) << arguments;
        EXPECT_EQ(read("notes"), "mine") << arguments;
    }
    // What it wrote itself, and what it is told to overwrite, it does; nothing is left beside them.
    const std::string outputs =
            " --json " + path("j") + " --report " + path("r") + " --trace " + path("t.pftrace");
    for (const std::string& arguments :
         {captured + outputs, captured + " --json-events" + outputs, captured + outputs,
          captured + " --json /dev/stdout", "record " + captured, "record " + captured,
          captured + " --json " + path("notes") + " --force",
          "--frames 60 --write-capture " + captured}) {
        EXPECT_EQ(run(arguments).status, 0) << arguments << run(arguments).err;
    }
    EXPECT_TRUE(has(read("notes"), "\"figures\""));
    for (const fs::path& entry : fs::directory_iterator(mFolder)) {
        EXPECT_NE(entry.extension(), ".part") << entry;
    }
}

TEST_F(Replay, AReaderThatGoesAway_EndsItInSilence) {
    run("--timeline 2>" + path("said") + " | head -1");
    EXPECT_EQ(read("said"), "");
}

TEST_F(Replay, EveryProperty_ChangesWhatIsShown) {
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
          "vendor.perf.pfar2.boost_level=4", "vendor.perf.pfar2.disable_core_ctl=0",
          "vendor.perf.pfar2.disable_pl=0", "vendor.perf.pfar2.enable=0",
          "vendor.perf.pfar2.hgpe.enable=0", "vendor.perf.pfar2.hgpe.max_neboost=-10",
          "vendor.perf.pfar2.hgpe.max_rendertime=70", "vendor.perf.phr.enable=0",
          "vendor.perf.phr.hr_min_rate=0.7"}) {
        EXPECT_NE(shown(std::string("--set ") + change), usual) << change;
    }
    EXPECT_NE(shown(firstGeneration + " --set vendor.perf.pfar.enable=1"), shown(firstGeneration));
}

TEST_F(Replay, SeveralCaptures_GiveOneTableAndOneObjectEachDespiteABrokenOne) {
    const std::string captures = capture("one", "--frames 600") + " " + file("three", "x\n") + " " +
                                 capture("two", "--workload tight --frames 300");
    const Result result =
            run(captures + " --compare 'alone: none' --jobs 3 --json " + path("runs.jsonl"));
    EXPECT_EQ(result.status, 2);
    EXPECT_TRUE(has(result.err, path("three"))) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 7) << result.out;
    EXPECT_TRUE(has(result.out, "failed")) << result.out;
    std::ifstream lines(path("runs.jsonl"));
    std::vector<std::string> settings;
    for (std::string line; std::getline(lines, line);) {
        settings.push_back(nlohmann::json::parse(line).at("setting"));
    }
    EXPECT_EQ(settings, (std::vector<std::string>{"as given", "alone", "as given", "alone"}));
}

}  // namespace
