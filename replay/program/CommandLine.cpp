#include "replay/program/CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/plan/Jobs.h"
#include "replay/play/Workloads.h"

namespace replay {

namespace {

constexpr char kFleetGroup[] = "Options";
constexpr int64_t kMaxCpuCostNs = 1'000'000;
constexpr int kDefaultFrames = 1800;
constexpr int kMaxFrames = 1'000'000;
constexpr int kMaxEffectPercent = 1000;
constexpr unsigned kMaxJobs = 1024;
constexpr unsigned kMaxBudget = 100'000;
constexpr char kAllWorks[] = "all";

constexpr char kPurpose[] =
        "Plays a capture of a game to the real libcindral.so in virtual time, on a stand-in "
        "device, and shows what the library did, why, what it cost and what it bought.";

constexpr char kExamples[] = R"(Examples:
  cindral-replay                            a game by rule, half a minute at 60 Hz
  cindral-replay game.ftrace                a capture from a device
  cindral-replay game.ftrace --log          every call of the service beside what caused it
  cindral-replay game.ftrace --timeline     every call, log line and marker on one time axis
  cindral-replay game.ftrace --set vendor.perf.phr.enable=0
                                            without the headroom regulator
  cindral-replay game.ftrace --model        the game reacts to being held
  cindral-replay game.ftrace --model --work all
                                            how far the answer depends on what is taken for work
  cindral-replay --workload bursts --refresh 120 --compare "no library: none"
                                            a synthetic game, with and without the library
  cindral-replay game.ftrace --compare "phr off: phr=off" --compare none
                                            side by side, the worst regressions first
  cindral-replay *.ftrace --json runs.jsonl
                                            one object a line for each capture
  cindral-replay game.ftrace --report game.html
                                            a page to look at
  cindral-replay record game.ftrace         writes game.ftrace.expect: what was sent when
  cindral-replay check game.ftrace          fails with the differences if that has changed
  cindral-replay sweep CAPTURES --rows ROWS --compare phr=off
  cindral-replay gather ROWS --table fleet.sqlite
  cindral-replay tune CAPTURES --rows ROWS --over vendor.perf.phr.hr_min_rate=0.3..0.8
                                            whole folders of captures (docs/fleet.md)
  cindral-replay --write-capture model.ftrace
                                            what tracing would show of that game

A change for --compare is PROPERTY=VALUE, gfar=on|off, phr=on|off, negative-boost=on|off, refresh=HZ,
none (no library at all), model, captured, work=NAME, buffers=N, boost-speedup=PERCENT or
negative-slowdown=PERCENT. Several are separated by commas; "LABEL: " may come before them.
)";

constexpr char kConditions[] = R"(
Unless set otherwise the frame regulator, the headroom regulator, the power optimisation and the debug
output are on. A capture needs the counters of the compositor: atrace categories gfx and view.

Exit status:
  0  done
  1  output could not be written
  2  bad input
  3  the replay failed, for instance in a deadlock
  4  check found differences
Of several captures the highest counts.)";

// What the options write to and only becomes a CommandLine when all are known.
struct Raw {
    std::vector<std::string> assignments;
    std::string work;
    int buffers = 0;
    bool model = false;
    bool noLibrary = false;
    bool listLayers = false;
    HintEffects effects;
    unsigned jobs = 0;
    std::string shard = "1/1";
};

std::string workloadHelp() {
    std::string text = "Play a synthetic game in the modelled loop:";
    for (const Workload& workload : workloads()) {
        text += std::string(" ") + workload.name + " (" + workload.description + ")";
        text += workload.name == workloads().back().name ? "" : ";";
    }
    return text;
}

CLI::Option* repeatable(CLI::Option* option) {
    return option->take_all()->expected(1)->allow_extra_args(false);
}

void addInputOptions(CLI::App& app, CommandLine& line, Raw& raw) {
    app.add_option("--layer", line.input.layerPattern,
                   "Replay the layer whose name matches; it is an error if several do or none does")
            ->type_name("REGEX");
    app.add_flag(
            "--join", line.input.join,
            "Make one layer of all that match, which the application made one after the other");
    app.add_option("--from", line.input.from,
                   "Play the capture from there: seconds (2.5), or a frame of the layer (300f)")
            ->type_name("TIME");
    app.add_option("--to", line.input.to, "Play it up to there, which is included")
            ->type_name("TIME");
    repeatable(app.add_option("--set", raw.assignments,
                              "Set a property of the device, see below; may be repeated"))
            ->type_name("PROPERTY=VALUE");
    app.add_option("--refresh", line.setup.refreshHz,
                   "The display's rate, if the capture does not tell; with --model any rate")
            ->type_name("HZ");
    app.add_flag("--no-library", raw.noLibrary, "The game and the compositor without the library");
    app.add_option("--library", line.setup.library, "The library to test")->type_name("PATH");
    app.add_option("--cpu-cost", line.setup.cpuCostNs, "Virtual time that each blocking call takes")
            ->type_name("NS")
            ->check(CLI::Range(int64_t{0}, kMaxCpuCostNs));
}

void addModelOptions(CLI::App& app, CommandLine& line, Raw& raw) {
    const std::string group = "Modelled loop (docs/model.md)";
    app.add_flag("--model", raw.model,
                 "Let the game start a frame when its queue call has returned and a buffer is "
                 "free, and the compositor latch one buffer a vsync; otherwise all happens as "
                 "captured")
            ->group(group);
    app.add_option("--work", raw.work,
                   "What of a captured interval is work: inferred (the default, by what the game "
                   "waited for), interval, percent:P, fixed:MS; all compares the first two")
            ->type_name("NAME")
            ->group(group);
    app.add_option(
               "--buffers", raw.buffers,
               "Buffers of the layer's queue, with the one on the screen; as the capture shows, "
               "or 3")
            ->type_name("N")
            ->check(CLI::Range(kMinBuffers, kMaxBuffers))
            ->group(group);
    app.add_option("--boost-speedup", raw.effects.boostSpeedupPercent,
                   "How much faster work goes while a boost is in force; 0 unless given")
            ->type_name("PERCENT")
            ->check(CLI::Range(0, kMaxEffectPercent))
            ->group(group);
    app.add_option("--negative-slowdown", raw.effects.negativeSlowdownPercent,
                   "How much of a negative boost's strength work takes longer; 0 unless given")
            ->type_name("PERCENT")
            ->check(CLI::Range(0, kMaxEffectPercent))
            ->group(group);
    app.add_option("--workload", line.input.workload, workloadHelp())
            ->type_name("NAME")
            ->group(group);
    app.add_option("--frames", line.input.frames,
                   "How many frames of the workload; 1800 unless given")
            ->type_name("N")
            ->check(CLI::Range(1, kMaxFrames))
            ->group(group);
}

void addCompare(CLI::App& app, CommandLine& line, const std::string& group) {
    repeatable(app.add_option("--compare", line.comparisons,
                              "Play the same input under another setting too; may be repeated"))
            ->type_name("CHANGES")
            ->group(group);
}

void addJobs(CLI::App& app, Raw& raw, const std::string& group) {
    app.add_option("--jobs", raw.jobs, "Runs at a time; as many as there are processors")
            ->type_name("N")
            ->check(CLI::Range(1U, kMaxJobs))
            ->group(group);
}

void addForce(CLI::App& app, CommandLine& line, const std::string& group) {
    app.add_flag("--force", line.force, "Overwrite a file that this program did not write")
            ->group(group);
}

void addOutputOptions(CLI::App& app, CommandLine& line, Raw& raw) {
    const std::string group = "Output";
    app.add_flag("--log", line.log, "Show every decision beside its cause")->group(group);
    app.add_flag("--timeline", line.timeline, "Show every event after the summary")->group(group);
    addCompare(app, line, group);
    app.add_option("--json", line.json,
                   "Write one JSON object a line for each run; - is standard output, and then "
                   "nothing else is written there (docs/json.md)")
            ->type_name("FILE")
            ->group(group);
    app.add_flag("--json-events", line.jsonEvents, "With frames, hints, series and log")
            ->group(group);
    app.add_option("--report", line.report, "Write a page to look at")
            ->type_name("FILE.html")
            ->group(group);
    app.add_option("--trace", line.trace, "Write the run for a trace viewer")
            ->type_name("FILE.pftrace")
            ->group(group);
    addJobs(app, raw, group);
    addForce(app, line, group);
    app.add_flag("--list-layers", raw.listLayers, "List the layers of the capture and stop")
            ->group(group);
    app.add_option("--write-capture", line.writeCapture,
                   "Write what tracing would show of the workload as ftrace text, and stop")
            ->type_name("FILE")
            ->group(group);
}

CLI::App* addCommand(CLI::App& app, CommandLine& line, const char* name, const char* description) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->fallthrough();
    command->add_option("CAPTURE", line.captures, "Captures")->required();
    command->add_option("--expectation", line.expectation,
                        "Where, instead of beside the capture; for one capture only")
            ->type_name("FILE");
    return command;
}

// What both play captures into a folder of rows.
CLI::App* addFleetCommand(CLI::App& app, CommandLine& line, Raw& raw, const char* name,
                          const char* description) {
    CLI::App* const command = app.add_subcommand(name, description);
    command->add_option("CAPTURE", line.captures,
                        "Captures, folders of them, or lists of them (docs/fleet.md)")
            ->required();
    command->add_option("--rows", line.fleet.rows, "The folder of rows; what is there is not run")
            ->type_name("FOLDER")
            ->required();
    addInputOptions(*command, line, raw);
    addModelOptions(*command, line, raw);
    addJobs(*command, raw, kFleetGroup);
    return command;
}

void addSweep(CLI::App& app, CommandLine& line, Raw& raw) {
    CLI::App* const sweep =
            addFleetCommand(app, line, raw, "sweep", "Make a row for each capture and setting");
    addCompare(*sweep, line, kFleetGroup);
    sweep->add_option("--shard", raw.shard, "Only the Ith of N parts of the captures")
            ->type_name("I/N");
    sweep->callback([&] { line.task = CommandLine::Task::kSweep; });
}

void addGather(CLI::App& app, CommandLine& line) {
    CLI::App* const gather = app.add_subcommand("gather", "Make one table of folders of rows");
    gather->add_option("ROWS", line.captures, "The folders")->required();
    gather->add_option("--table", line.fleet.table, "Write them as a SQLite file")
            ->type_name("FILE")
            ->required();
    gather->add_option("--csv", line.fleet.csv, "Write them as CSV, too")->type_name("FILE");
    gather->add_option("--report", line.report, "Write a page to look at")->type_name("FILE.html");
    gather->add_option("--base", line.fleet.base, "The setting that the page compares with")
            ->type_name("LABEL")
            ->default_val(Setup().label);
    addForce(*gather, line, kFleetGroup);
    gather->callback([&] { line.task = CommandLine::Task::kGather; });
}

void addTune(CLI::App& app, CommandLine& line, Raw& raw) {
    CLI::App* const tune =
            addFleetCommand(app, line, raw, "tune", "Look for a better setting and check it");
    FleetOptions& fleet = line.fleet;
    repeatable(tune->add_option("--over", fleet.tune.over, "A property to choose; may be repeated"))
            ->type_name("PROPERTY=LEAST..MOST|VALUE,VALUE")
            ->required();
    repeatable(tune->add_option("--objective", fleet.tune.objective,
                                "What to make better, the most important first"))
            ->type_name("FIGURE|FIGURE*WEIGHT,FIGURE*WEIGHT");
    repeatable(tune->add_option("--limit", fleet.tune.limits,
                                "No capture may get worse than now by more; may be repeated"))
            ->type_name("FIGURE=PERCENT");
    tune->add_option("--budget", fleet.tune.budget, "Runs of a capture at most")
            ->type_name("N")
            ->check(CLI::Range(2U, kMaxBudget))
            ->capture_default_str();
    tune->add_option("--properties", fleet.properties, "Write the setting for a device's build")
            ->type_name("FILE");
    tune->add_option("--report", line.report, "Write a page to look at")->type_name("FILE.html");
    addForce(*tune, line, kFleetGroup);
    tune->callback([&] { line.task = CommandLine::Task::kTune; });
}

// "I/N".
void takeShard(CommandLine& line, const std::string& text) {
    const std::string_view shard = text;
    const size_t slash = std::min(shard.find('/'), shard.size() - 1);
    FleetOptions& fleet = line.fleet;
    if (!toNumber(shard.substr(0, slash), fleet.shard) ||
        !toNumber(shard.substr(slash + 1), fleet.shards) || fleet.shard < 1 ||
        fleet.shard > fleet.shards) {
        throw InputError("--shard " + inQuotes(text) + ": give I/N, with I from 1 to N");
    }
}

void parse(CLI::App& app, const std::vector<std::string>& arguments) {
    // The parser takes them from the back.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::Success&) {
        throw;
    } catch (const CLI::ParseError& error) {
        throw InputError(std::string(error.what()) + "; see --help");
    }
}

void takeModel(CommandLine& line, const Raw& raw) {
    const bool wanted = raw.model || line.captures.empty() || line.task == CommandLine::Task::kTune;
    const bool tuned = !raw.work.empty() || raw.buffers != 0 || raw.effects.any();
    if (!wanted && tuned) {
        throw InputError(
                "--work, --buffers, --boost-speedup and --negative-slowdown belong to "
                "--model");
    }
    if (!wanted) return;
    ModelChoice model;
    model.effects = raw.effects;
    if (raw.buffers != 0) model.buffers = raw.buffers;
    line.compareWorks = raw.work == kAllWorks;
    if (!raw.work.empty() && !line.compareWorks) model.work = parseWorkEstimator(raw.work);
    line.setup.model = model;
}

void takeWorkload(CommandLine& line, const Raw& raw) {
    const bool isNamed = !line.input.workload.empty() || line.input.frames != 0;
    if (isNamed && !line.captures.empty()) {
        throw InputError("--workload and --frames are for a game without a capture; leave " +
                         inQuotes(line.captures.front()) + " out");
    }
    if (line.input.frames == 0) line.input.frames = kDefaultFrames;
    if (!line.captures.empty()) return;
    if (line.input.workload.empty()) line.input.workload = kDefaultWorkload;
    if (!raw.work.empty()) throw InputError("--work is for captures; a workload says itself");
    if (raw.listLayers) throw InputError("--list-layers is for captures; name one");
    if (!line.input.toOptions().empty()) {
        throw InputError("--from, --to and --join are for captures");
    }
}

void takeTask(CommandLine& line, const Raw& raw, const CLI::App& record, const CLI::App& check) {
    using Task = CommandLine::Task;
    line.task = record.parsed()              ? Task::kRecord
                : check.parsed()             ? Task::kCheck
                : raw.listLayers             ? Task::kListLayers
                : !line.writeCapture.empty() ? Task::kWriteCapture
                                             : line.task;
    if (line.task == Task::kWriteCapture && !line.captures.empty()) {
        throw InputError("--write-capture writes a workload; leave " +
                         inQuotes(line.captures.front()) + " out");
    }
    if (!line.expectation.empty() && line.captures.size() != 1) {
        throw InputError("--expectation is for one capture");
    }
}

// No option is passed over in silence: what a task heeds, and it refuses all else.
using Names = std::initializer_list<const char*>;
constexpr Names kRecordOptions = {"--layer",         "--join",
                                  "--from",          "--to",
                                  "--set",           "--refresh",
                                  "--no-library",    "--library",
                                  "--cpu-cost",      "--model",
                                  "--work",          "--buffers",
                                  "--boost-speedup", "--negative-slowdown",
                                  "--jobs",          "--force"};
// All else is as it was recorded.
constexpr Names kCheckOptions = {"--library", "--jobs"};
constexpr Names kWriteCaptureOptions = {
        "--workload",          "--frames",        "--set",   "--refresh", "--no-library",
        "--library",           "--cpu-cost",      "--model", "--buffers", "--boost-speedup",
        "--negative-slowdown", "--write-capture", "--force"};

void requireOnly(const CLI::App& app, const std::string& task, const Names& names) {
    for (const CLI::Option* option : app.get_options()) {
        const std::string name = option->get_name();
        if (option->count() == 0 || name == "CAPTURE" ||
            std::find(names.begin(), names.end(), name) != names.end()) {
            continue;
        }
        throw InputError(task + " does nothing with " + name + "; leave it out");
    }
}

// The commands for fleets have options of their own, behind their names.
void refuseWhatIsIgnored(const CLI::App& app, const CommandLine& line) {
    using Task = CommandLine::Task;
    if (line.task == Task::kRecord) requireOnly(app, "record", kRecordOptions);
    if (line.task == Task::kCheck) requireOnly(app, "check", kCheckOptions);
    if (line.task == Task::kListLayers) requireOnly(app, "--list-layers", {"--list-layers"});
    if (line.task == Task::kWriteCapture) requireOnly(app, "--write-capture", kWriteCaptureOptions);
    const bool isFleet =
            line.task == Task::kSweep || line.task == Task::kGather || line.task == Task::kTune;
    if (isFleet) requireOnly(app, "in front of a command the program", {});
    if (line.jsonEvents && line.json.empty()) throw InputError("--json-events belongs to --json");
}

// What shows one run, or the runs of one capture.
void requireOne(const CommandLine& line) {
    const bool severalCaptures = line.captures.size() > 1;
    const bool isFleet =
            line.task == CommandLine::Task::kGather || line.task == CommandLine::Task::kTune;
    const bool ofOneCapture = (!line.report.empty() && !isFleet) || !line.trace.empty() ||
                              line.task == CommandLine::Task::kListLayers;
    if (severalCaptures && ofOneCapture) {
        throw InputError("--report, --trace and --list-layers are for one capture");
    }
    const bool severalRuns = severalCaptures || line.compareWorks || !line.comparisons.empty();
    if (severalRuns && (line.log || line.timeline)) {
        throw InputError("--log and --timeline show one run");
    }
}

}  // namespace

std::vector<InputChoice> CommandLine::inputs() const {
    std::vector<InputChoice> list;
    for (const std::string& capture : captures) {
        list.push_back(input);
        list.back().capture = capture;
    }
    if (list.empty()) list.push_back(input);
    return list;
}

unsigned CommandLine::jobsAtATime() const {
    return jobs.value_or(usableProcessors());
}

std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& arguments) {
    CommandLine line;
    Raw raw;
    CLI::App app(kPurpose, "cindral-replay");
    app.footer(kExamples + ("\nProperties for --set:\n" + describeProperties()) + kConditions);
    app.set_version_flag("--version", std::string("cindral-replay ") + CINDRAL_VERSION);
    app.add_option(
            "CAPTURE", line.captures,
            "Captures in any form; - is standard input; without one: the workload \"session\"");
    addInputOptions(app, line, raw);
    addModelOptions(app, line, raw);
    addOutputOptions(app, line, raw);
    const CLI::App* const record =
            addCommand(app, line, "record", "Write what is sent when beside each capture");
    const CLI::App* const check = addCommand(
            app, line, "check", "Compare with what was recorded, under the recorded settings");
    addSweep(app, line, raw);
    addGather(app, line);
    addTune(app, line, raw);
    app.require_subcommand(0, 1);
    try {
        parse(app, arguments);
    } catch (const CLI::Success& request) {
        app.exit(request, std::cout, std::cerr);
        return std::nullopt;
    }
    for (const std::string& assignment : raw.assignments) line.setup.settings.set(assignment);
    line.setup.withLibrary = !raw.noLibrary;
    if (raw.jobs != 0) line.jobs = raw.jobs;
    takeShard(line, raw.shard);
    takeWorkload(line, raw);
    takeModel(line, raw);
    takeTask(line, raw, *record, *check);
    refuseWhatIsIgnored(app, line);
    if (record->parsed() && line.compareWorks) {
        throw InputError("record plays one setting; give one --work");
    }
    requireOne(line);
    return line;
}

}  // namespace replay
