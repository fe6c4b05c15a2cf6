#include "replay/program/Tasks.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iostream>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/capture/FtraceWriter.h"
#include "replay/plan/Plan.h"
#include "replay/play/RunCapture.h"
#include "replay/program/Checks.h"
#include "replay/program/FleetTasks.h"
#include "replay/program/Outputs.h"
#include "replay/program/Protect.h"

namespace replay {

namespace {

using Json = nlohmann::json;

std::vector<Setup> setupsOf(const CommandLine& line) {
    std::vector<Setup> setups;
    if (line.compareWorks) {
        for (const WorkEstimator& work : allWorkEstimators()) {
            setups.push_back(line.setup);
            setups.back().model->work = work;
            setups.back().label = work.name();
        }
    } else {
        setups.push_back(line.setup);
    }
    for (const std::string& comparison : line.comparisons) {
        setups.push_back(changedSetup(line.setup, comparison));
        if (line.captures.empty() && !setups.back().model) {
            throw InputError("--compare captured: a workload is always modelled; name a capture");
        }
    }
    return setups;
}

// Only a name that says what the file is for is taken.
void requireTraceName(const std::string& path) {
    if (path.empty() || endsWith(path, ".pftrace")) return;
    throw InputError("--trace " + inQuotes(path) + ": give a name ending in .pftrace");
}

// In this process, one after the other: for what is made of more than a run's figures.
ExitStatus replayHere(const CommandLine& line, const std::vector<PlannedRun>& plan) {
    const Input input = openInputVisibly(plan.front().input);
    std::vector<WholeRun> runs;
    std::vector<std::string> lines;
    for (const PlannedRun& run : plan) {
        runs.push_back({run.setup.label, playInput(input, run.setup)});
        Played& played = runs.back().played;
        const bool isShownWhole = plan.size() == 1 || !line.trace.empty();
        if (!isShownWhole) played.run = {};
        if (plan.size() > 1 || !line.json.empty()) {
            lines.push_back(jsonLine(line, run.setup, played.findings));
        }
    }
    // Files first: who reads standard output may go away before its end.
    writeJson(line, lines);
    writeFiles(line, runs);
    if (plan.size() == 1) {
        writeText(line, runs.front().played);
    } else {
        std::vector<ComparedRun> compared;
        for (const std::string& text : lines) compared.push_back(comparedRun(Json::parse(text)));
        writeTables(line, compared);
    }
    return kDone;
}

// Figures are all that is wanted, so each run has a process of its own.
ExitStatus replayApart(const CommandLine& line, const std::vector<PlannedRun>& plan) {
    const std::vector<JobResult> results =
            playAll(plan, line.jobsAtATime(), [&](const PlannedRun& run, const Played& played) {
                return jsonLine(line, run.setup, played.findings);
            });
    std::vector<std::string> lines;
    std::vector<ComparedRun> compared;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i].error.empty()) {
            lines.push_back(results[i].output);
            compared.push_back(comparedRun(Json::parse(lines.back())));
        } else {
            compared.push_back({plan[i].input.name(), plan[i].setup.label, {}, results[i].error});
        }
    }
    const ExitStatus status = complainOfFailures(results);
    writeJson(line, lines);
    writeTables(line, compared);
    return status;
}

ExitStatus replayInputs(const CommandLine& line) {
    requireTraceName(line.trace);
    const std::vector<PlannedRun> plan = everyCombination(line.inputs(), setupsOf(line));
    const bool onlyFigures = plan.size() > 1 && line.report.empty() && line.trace.empty();
    return onlyFigures ? replayApart(line, plan) : replayHere(line, plan);
}

void listLayers(std::ostream& out, const Capture& capture) {
    for (const LayerEvents& layer : capture.layers) {
        const double seconds = toSeconds(capture.durationNs);
        const double rate =
                seconds > 0 ? static_cast<double>(layer.queueTimesNs.size()) / seconds : 0;
        out << format("%6zu queued %6zu consumed %7.2f/s  ", layer.queueTimesNs.size(),
                      layer.consumes.size(), rate)
            << layer.name.layer << '\n';
    }
}

std::vector<CounterSample> samplesToWrite(const CommandLine& line) {
    const Input input = openInput(line.input);
    return samplesOf(playInput(input, line.setup).run, input.layer().counter);
}

}  // namespace

ExitStatus execute(const CommandLine& line) {
    requireSafeOutputs(line);
    ExitStatus status = kDone;
    switch (line.task) {
        case CommandLine::Task::kWriteCapture: {
            const std::vector<CounterSample> samples = samplesToWrite(line);
            writeFile(line.writeCapture, [&](std::ostream& out) { writeFtrace(out, samples); });
            break;
        }
        case CommandLine::Task::kListLayers:
            listLayers(std::cout, openCapture(line.inputs().front()));
            break;
        case CommandLine::Task::kRecord:
            status = recordExpectations(line);
            break;
        case CommandLine::Task::kCheck:
            status = checkExpectations(line);
            break;
        case CommandLine::Task::kSweep:
            status = sweepCaptures(line);
            break;
        case CommandLine::Task::kGather:
            status = gatherTable(line);
            break;
        case CommandLine::Task::kTune:
            status = tuneSetting(line);
            break;
        case CommandLine::Task::kReplay:
            status = replayInputs(line);
            break;
    }
    finishOutput(std::cout, "standard output");
    return status;
}

ExitStatus complainOfFailures(const std::vector<JobResult>& results) {
    ExitStatus status = kDone;
    std::set<std::string> said;  // a capture may be broken under every setting
    for (const JobResult& result : results) {
        if (result.error.empty()) continue;
        if (said.insert(result.error).second) complain(result.error);
        status = std::max(status, result.badInput ? kBadInput : kReplayFailed);
    }
    return status;
}

}  // namespace replay
