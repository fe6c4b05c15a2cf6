// What the findings say, checked against each other and against the lists they come from.

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <set>

#include "replay/findings/Compare.h"
#include "replay/findings/Expectation.h"
#include "replay/findings/Figures.h"
#include "tests/replay/Replay.h"

namespace {

using nlohmann::json;

TEST_F(Replay, Findings_CountLateFramesByTheirIntervals) {
    const json run = jsonOf("--workload stall");
    const int64_t period = run["refresh"]["period_ns"];
    const char* const kNames[] = {"late_frames", "late_frames_over_1_vsync",
                                  "late_frames_over_2_vsyncs"};
    for (int vsyncs = 0; vsyncs < 3; ++vsyncs) {
        const auto late =
                std::count_if(run["frames"].begin(), run["frames"].end(), [&](const json& frame) {
                    return frame["interval_ns"].get<int64_t>() > (vsyncs + 1) * period + 2'000'000;
                });
        EXPECT_EQ(run["figures"][kNames[vsyncs]], late);
        EXPECT_GT(late, 0);
    }
    EXPECT_NEAR(run["worst_frames"][0]["interval_ns"].get<double>(), 100.0 * period, 2.0 * period);
}

// In the modelled loop every latch follows its vsync by a millisecond.
TEST_F(Replay, Findings_SayWhatThePlayerSaw) {
    const json run = jsonOf("--workload hitches");
    std::vector<int64_t> shown;
    for (const json& frame : run["frames"]) {
        const int64_t vsync = frame["latched_ns"].get<int64_t>() - 1'000'000;
        EXPECT_EQ(frame["shown_ns"], vsync);
        shown.push_back(vsync);
    }
    const int64_t period = run["refresh"]["period_ns"];
    int64_t repeated = 0;
    std::vector<int64_t> intervals;
    size_t inTime = 1;
    for (size_t i = 1; i < shown.size(); ++i) {
        const int64_t vsyncs = std::llround(1.0 * (shown[i] - shown[i - 1]) / period);
        EXPECT_EQ(run["frames"][i]["shown_late_vsyncs"], vsyncs - 1);
        repeated += vsyncs - 1;
        inTime += vsyncs == 1 ? 1 : 0;
        intervals.push_back(shown[i] - shown[i - 1]);
    }
    std::sort(intervals.rbegin(), intervals.rend());
    const size_t hundredth = (intervals.size() + 99) / 100;
    const double total = std::accumulate(intervals.begin(), intervals.begin() + hundredth, 0.0);
    EXPECT_GT(repeated, 10);
    EXPECT_EQ(run["figures"]["repeated_vsyncs"], repeated);
    EXPECT_NEAR(run["figures"]["shown_in_time_percent"], 100.0 * inTime / shown.size(), 1e-9);
    EXPECT_NEAR(run["figures"]["low_1_percent_fps"], 1e9 * hundredth / total, 1e-6);
    EXPECT_NEAR(run["figures"]["low_0_1_percent_fps"], 1e9 / intervals[0], 1e-6);
}

TEST_F(Replay, Findings_GiveEveryNeverItsReason) {
    struct Case {
        const char* arguments;
        const char* what;
        const char* reason;
    };
    const Case kCases[] = {
            {"--workload heavy --refresh 120", "frame_regulator",
             " frames/s, not the display's 120"},
            {"--workload heavy --refresh 120", "pl_off", "the frame regulator was never on"},
            {"--workload steady --refresh 48", "frame_regulator", "are in no rate class"},
            {"--workload steady --frames 30", "headroom_regulator", "no measuring period closed"},
            {"--workload steady --frames 30", "environment", "no measuring period closed"},
            {"--set vendor.perf.phr.enable=0 --set vendor.perf.pfar2.enable=0", "environment",
             "[GFAR:0][PHR:0]"},
            {"--workload tight --buffers 2", "headroom_regulator",
             "no 31 buffers in a row left others pending, at most"},
            {"--set vendor.perf.phr.enable=0", "headroom_regulator", "[GFAR:1][PHR:0]"},
            {"--set vendor.perf.pfar2.hgpe.enable=0", "negative_boost", "hgpe.enable is 0"},
            {"--set vendor.perf.pfar2.disable_pl=0", "pl_off", "disable_pl is 0"},
            {"--workload steady --frames 150", "core_control_off",
             "no 3 measuring periods in a row"},
    };
    for (const Case& test : kCases) {
        const json never = jsonOf(test.arguments)["never"];
        ASSERT_TRUE(never[test.what].is_string()) << test.arguments << never;
        EXPECT_NE(never[test.what].get<std::string>().find(test.reason), std::string::npos)
                << test.arguments << never;
    }
    EXPECT_TRUE(jsonOf("")["never"]["frame_regulator"].is_null());
}

TEST_F(Replay, Parts_AreWhatTheWholeHasThere) {
    ASSERT_EQ(run("--write-capture " + path("whole")).status, 0);
    const json whole = jsonOf(path("whole") + " --no-library");
    const json part = jsonOf(path("whole") + " --no-library --from 100f --to 12.5");
    const int64_t from = whole["frames"][100]["queued_ns"];
    const auto& frames = part["frames"];
    EXPECT_EQ(part["capture"]["origin_ns"].get<int64_t>(),
              whole["capture"]["origin_ns"].get<int64_t>() + from);
    for (size_t i = 0; i < frames.size(); ++i) {
        const json& same = whole["frames"][100 + i];
        EXPECT_EQ(frames[i]["queued_ns"].get<int64_t>(), same["queued_ns"].get<int64_t>() - from);
        EXPECT_EQ(frames[i]["pending"], same["pending"]);
    }
    EXPECT_GT(whole["frames"][100 + frames.size()]["queued_ns"], 12'500'000'000);
}

// Whether `text` begins with the pattern's first part and holds the others, which stars separate, in order.
bool resembles(const std::string& text, const std::string& pattern) {
    const std::string start = pattern.substr(0, pattern.find('*'));
    if (text.compare(0, start.size(), start) != 0) return false;
    std::istringstream parts(pattern.substr(start.size()));
    size_t at = start.size();
    for (std::string part; std::getline(parts, part, '*');) {
        at = text.find(part, at);
        if (at == std::string::npos) return false;
        at += part.size();
    }
    return true;
}

TEST_F(Replay, DecisionLog_GivesEveryActionItsCause) {
    const std::pair<const char*, std::vector<const char*>> kCauses[] = {
            {"perf_hint(4166, (null), *, 1500)", {"checkpoint 1: no buffer for "}},
            {"perf_hint(4166, (null), *, 2000)", {"checkpoint 2: no buffer for "}},
            {"perf_hint(4166, (null), 1000, 10000)", {"checkpoint 3: no buffer for "}},
            {"perf_hint(4166, (null), 0, 0)", {"frame "}},
            {"perf_hint(4166, (null), 500, ", {"frame * less than the target of ", "kept alive"}},
            {"perf_hint(4166, (null), 0, 65536)", {"missed frame", "frame * more than the target"}},
            {"perf_lock_acq", {"three measuring periods*frames/s last"}},
            {"perf_lock_rel",
             {"frames were lost", "the rate was not kept", "the frame regulator is off",
              "*not the display's rate"}},
            {"perf_get", {"initialisation", "a buffer of ", "*environment"}},
            {"get_perf", {"initialisation", "a buffer of ", "*environment"}},
            {"IsFeature", {"initialisation"}},
    };
    std::set<std::string> seen;
    for (const std::string& arguments :
         {std::string(), capture("captured"), std::string("--workload stall")}) {
        const json run = jsonOf(arguments);
        for (const json& decision : run["log"]) {
            const std::string what = decision["what"];
            const std::string cause = decision["cause"];
            const auto* match =
                    std::find_if(std::begin(kCauses), std::end(kCauses),
                                 [&](const auto& known) { return resembles(what, known.first); });
            ASSERT_NE(match, std::end(kCauses)) << decision;
            seen.insert(match->first);
            EXPECT_TRUE(std::any_of(match->second.begin(), match->second.end(),
                                    [&](const char* known) { return resembles(cause, known); }))
                    << decision;
        }
        for (const char* regulator : {"frame", "headroom"}) {
            for (const json& change : run["regulators"][regulator]) {
                EXPECT_GT(change["reason"].get<std::string>().size(), 10u) << change;
            }
        }
    }
    EXPECT_EQ(seen.size(), std::size(kCauses));
}

void collectKeys(const json& value, std::set<std::string>& keys) {
    if (value.is_array() && !value.empty()) collectKeys(value.front(), keys);
    if (!value.is_object()) return;
    for (const auto& [key, inner] : value.items()) {
        keys.insert(key);
        // Its keys are what the user set.
        if (key != "conditions") collectKeys(inner, keys);
    }
}

TEST_F(Replay, EveryJsonField_IsDocumentedAndEveryDocumentedOneExists) {
    std::set<std::string> keys;
    for (const std::string& arguments :
         {capture("captured") + " --model", std::string("--workload bursts")}) {
        collectKeys(jsonOf(arguments), keys);
    }
    std::set<std::string> documented;
    std::ifstream page(CINDRAL_SOURCE_DIR "/docs/json.md");
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| `", 0) == 0) documented.insert(line.substr(3, line.find('`', 3) - 3));
    }
    EXPECT_GT(keys.size(), 80u);
    EXPECT_EQ(documented, keys);
}

TEST(Figures, EachPercentile_IsTheOneInItsName) {
    replay::Findings findings;
    for (auto* times : {&findings.frameTimeNs, &findings.renderTimeNs, &findings.latencyNs,
                        &findings.heldNs, &findings.screen.animationErrorNs}) {
        times->p50 = 50'000'000;
        times->p90 = 90'000'000;
        times->p95 = 95'000'000;
        times->p99 = 99'000'000;
    }
    int percentiles = 0;
    for (const replay::Figure& figure : replay::figures()) {
        const std::string name = figure.name;
        const size_t p = name.find("_p");
        if (p == std::string::npos || !isdigit(name[p + 2])) continue;
        ++percentiles;
        EXPECT_EQ(figure.of(findings), std::stoi(name.substr(p + 2))) << name;
    }
    EXPECT_GE(percentiles, 12);
}

replay::ComparedRun compared(const std::string& setting, double late, double latency, double fps) {
    replay::ComparedRun run;
    run.setting = setting;
    for (const replay::Figure& figure : replay::figures()) {
        const std::string name = figure.name;
        run.values.push_back(name == "late_frames"         ? late
                             : name == "latency_p95_ms"    ? latency
                             : name == "frames_per_second" ? fps
                                                           : 1);
    }
    return run;
}

TEST(Comparison, WorstRegressions_ComeFirstAndWhatIsEqualIsLeftOut) {
    std::ostringstream out;
    replay::writeComparison(out, {compared("a", 10, 20, 60), compared("b", 100, 25, 70)}, {});
    const std::string text = out.str();
    const size_t late = text.find("late frames");
    const size_t latency = text.find("queue to latch p95");
    const size_t rate = text.find("frames per second");
    ASSERT_NE(rate, std::string::npos) << text;
    EXPECT_LT(text.find("\nworse\n"), late) << text;
    EXPECT_LT(late, latency) << text;
    EXPECT_LT(latency, text.find("\nbetter\n")) << text;
    EXPECT_LT(text.find("\nbetter\n"), rate) << text;
    EXPECT_NE(text.find("+90"), std::string::npos) << text;
    EXPECT_EQ(text.find("stutters"), std::string::npos) << text;
    EXPECT_EQ(text.find('\x1b'), std::string::npos) << "colours are for terminals";
    std::ostringstream mixed;
    replay::writeComparison(
            mixed,
            {compared("a", 10, 20, 60), compared("b", 2, 20, 60), compared("c", 100, 20, 60)}, {});
    EXPECT_TRUE(has(mixed.str(), "\nworse or better\n  late frames")) << mixed.str();
    std::ostringstream overview;
    replay::writeOverview(overview, {compared("a", 10, 20, 60), compared("b", 100, 25, 60)}, 2, {});
    EXPECT_TRUE(has(overview.str(), "late frames +90")) << overview.str();
    std::ostringstream coloured;
    replay::writeComparison(coloured, {compared("a", 10, 20, 60), compared("b", 100, 20, 60)},
                            {true});
    EXPECT_NE(coloured.str().find("\x1b[31m"), std::string::npos) << "worse is red";
}

using Events = std::vector<replay::ExpectedEvent>;

TEST(Expectation, Differences_SayWhereAndWhatIsMissingNewMovedOrChanged) {
    const Events expected = {
            {10'000'000, 1, "mark a"}, {20'000'000, 2, "held 8 ms"}, {30'000'000, 3, "mark c"}};
    const auto with = [&](size_t index, const replay::ExpectedEvent& event) {
        Events events = expected;
        events[index] = event;
        return events;
    };
    Events more = expected;
    more.push_back({40'000'000, 4, "mark d"});
    const std::pair<Events, std::vector<std::string>> kCases[] = {
            {expected, {}},
            {{expected[0], expected[1]}, {"-    0.030000000  frame 3  mark c"}},
            {more, {"+    0.040000000  frame 4  mark d"}},
            {with(1, {21'500'000, 2, "held 8 ms"}),
             {"~    0.020000000  frame 2  held 8 ms  came 1.500000 ms later"}},
            {with(1, {20'000'000, 2, "held 9 ms"}),
             {"~    0.020000000  frame 2  held 8 ms  is now  held 9 ms"}},
            {with(1, {20'000'000, 2, "mark x"}),
             {"-    0.020000000  frame 2  held 8 ms", "+    0.020000000  frame 2  mark x"}},
    };
    for (const auto& [actual, lines] : kCases) {
        EXPECT_EQ(replay::differencesOf(expected, actual), lines);
    }
}

TEST_F(Replay, RecordedBehaviour_IsWhatTheLibraryStillDoes) {
    // Two with the debug output and two, longer, without it.
    const std::pair<const char*, const char*> kCaptures[] = {
            {"session", "--frames 600"},
            {"session-modelled", "--frames 160"},
            {"bursts-120hz", "--workload bursts --refresh 120 --frames 230"},
            {"stall-60hz", "--workload stall --frames 490"},
    };
    for (const auto& [name, arguments] : kCaptures) {
        const std::string expectation =
                std::string(CINDRAL_SOURCE_DIR "/tests/replay/expectations/") + name + ".expect";
        const Result result =
                run("check " + capture(name, arguments) + " --expectation " + expectation);
        EXPECT_EQ(result.status, 0) << result.out << result.err;
    }
}

TEST_F(Replay, ChangedBehaviour_FailsTheCheckReadably) {
    const std::string captured = capture("session");
    ASSERT_EQ(run("record " + captured).status, 0);
    EXPECT_EQ(run("check " + captured).status, 0);
    const std::string recorded = read("session.expect");
    std::string changed = recorded;
    const std::string option = "vendor.perf.phr.enable=1";
    ASSERT_NE(changed.find(option), std::string::npos) << changed;
    changed.replace(changed.find(option) + option.size() - 1, 1, "0");
    file("session.expect", changed);
    const Result result = run("check " + captured);
    EXPECT_EQ(result.status, 4);
    EXPECT_TRUE(has(result.out, "differences (- expected, + new, ~ changed)")) << result.out;
    EXPECT_TRUE(has(result.out, "  frame ")) << result.out;
    EXPECT_TRUE(has(result.out, " held ")) << result.out;
    EXPECT_LT(std::count(result.out.begin(), result.out.end(), '\n'), 30);
    file("session.expect", "cindral-replay expectation 1\n");
    EXPECT_TRUE(has(run("check " + captured).err, "recorded by an older cindral-replay"));
    file("session.expect", recorded.substr(0, recorded.size() - 10));
    EXPECT_EQ(run("check " + captured).status, 2) << "cut off";
}

}  // namespace
