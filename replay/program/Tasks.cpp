#include "replay/program/Tasks.h"

#include <nlohmann/json.hpp>
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/capture/ModelledSession.h"
#include "replay/capture/Progress.h"
#include "replay/capture/ReadCapture.h"
#include "replay/findings/Compare.h"
#include "replay/findings/DecisionLog.h"
#include "replay/findings/Summary.h"
#include "replay/findings/Timeline.h"
#include "replay/plan/Jobs.h"
#include "replay/plan/PlayInput.h"
#include "replay/play/WorkloadCapture.h"
#include "replay/program/Checks.h"
#include "replay/report/HtmlReport.h"
#include "replay/report/TraceExport.h"

namespace replay {

namespace {

using Json = nlohmann::json;

Input loadInput(const CommandLine& line, const std::string& path) {
    if (!line.workload.empty()) return workloadInput(line.workload, line.frames);
    if (path.empty()) return captureInput(modelledCapture(), line.layerPattern);
    Progress progress(STDERR_FILENO, path);
    ReadOptions options;
    options.onProgress = [&](uint64_t done, uint64_t total) { progress.show(done, total); };
    return captureInput(readCapture(path, options), line.layerPattern);
}

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
    }
    return setups;
}

std::string jsonLine(const Findings& findings, const Setup& setup, bool events) {
    Json json = toJson(findings, events ? Detail::kEverything : Detail::kFigures);
    json["setting"] = setup.label;
    // Names in a capture may hold any bytes.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void writeJson(const CommandLine& line, const std::vector<std::string>& lines) {
    const auto write = [&](std::ostream& out) {
        for (const std::string& text : lines) out << text << '\n';
    };
    if (line.json == "-") return write(std::cout);
    if (!line.json.empty()) writeFile(line.json, write);
}

// Only names that say what the file is for are taken.
void requireTraceName(const std::string& path) {
    if (path.empty() || endsWith(path, ".json") || endsWith(path, ".pftrace")) return;
    throw InputError("--trace " + inQuotes(path) + ": give a name ending in .json or .pftrace");
}

void writeText(const CommandLine& line, const Findings& findings, const Run& run) {
    writeSummary(std::cout, summarize(findings), standardOutputIsTerminal());
    if (line.log) {
        std::cout << "\nDecisions\n";
        writeDecisionLog(std::cout, findings);
    }
    if (line.timeline) {
        std::cout << "\nTimeline\n";
        writeTimeline(std::cout, run);
    }
}

// Runs of one input that are kept whole, for files that show them whole.
struct Kept {
    std::vector<Setup> setups;
    std::vector<Played> played;  // only if there is to be a trace
    std::vector<Findings> findings;
};

void writeReport(const std::string& path, const Kept& kept) {
    if (path.empty()) return;
    std::vector<ReportRun> runs;
    for (size_t i = 0; i < kept.findings.size(); ++i) {
        runs.push_back({kept.setups[i].label, &kept.findings[i]});
    }
    writeFile(path, [&](std::ostream& out) { writeHtmlReport(out, runs); });
}

void writeTrace(const std::string& path, const Kept& kept) {
    if (path.empty()) return;
    std::vector<TraceRun> runs;
    for (size_t i = 0; i < kept.played.size(); ++i) {
        runs.push_back({kept.setups[i].label, &kept.played[i].run, &kept.findings[i]});
    }
    writeFile(path, [&](std::ostream& out) { writeTrace(out, path, runs); });
}

ExitStatus replayOne(const CommandLine& line, const Input& input, const Setup& setup) {
    Kept kept;
    kept.setups.push_back(setup);
    kept.played.push_back(playInput(input, setup));
    kept.findings.push_back(kept.played.back().findings(input));
    if (line.json != "-") writeText(line, kept.findings.front(), kept.played.front().run);
    if (!line.json.empty()) {
        writeJson(line, {jsonLine(kept.findings.front(), setup, line.jsonEvents)});
    }
    writeReport(line.report, kept);
    writeTrace(line.trace, kept);
    return kDone;
}

void writeTables(const CommandLine& line, const std::vector<std::string>& lines,
                 std::vector<ComparedRun> failed, size_t settings) {
    writeJson(line, lines);
    if (line.json == "-") return;
    const TableStyle style{standardOutputIsTerminal()};
    std::vector<ComparedRun> runs = std::move(failed);
    size_t next = 0;
    for (ComparedRun& run : runs) {
        if (run.error.empty()) run = comparedRun(Json::parse(lines[next++]));
    }
    if (line.captures.size() > 1) {
        writeOverview(std::cout, std::move(runs), settings, style);
    } else {
        writeComparison(std::cout, runs, style);
    }
}

// Report and trace need more than figures, so the runs come one after the other in this process.
ExitStatus compareHere(const CommandLine& line, const Input& input,
                       const std::vector<Setup>& setups) {
    Kept kept;
    kept.setups = setups;
    std::vector<std::string> lines;
    for (const Setup& setup : setups) {
        Played played = playInput(input, setup);
        kept.findings.push_back(played.findings(input));
        lines.push_back(jsonLine(kept.findings.back(), setup, line.jsonEvents));
        if (!line.trace.empty()) kept.played.push_back(std::move(played));
    }
    writeTables(line, lines, std::vector<ComparedRun>(lines.size()), setups.size());
    writeReport(line.report, kept);
    writeTrace(line.trace, kept);
    return kDone;
}

struct Jobs {
    std::vector<std::function<std::string()>> list;
    std::vector<ComparedRun> runs;  // who they are

    void add(const std::string& capture, const Setup& setup, std::function<std::string()> job) {
        ComparedRun run;
        run.capture = capture;
        run.setting = setup.label;
        runs.push_back(run);
        list.push_back(std::move(job));
    }
};

ExitStatus runAll(const CommandLine& line, Jobs jobs, size_t settings) {
    const std::vector<JobResult> results =
            runJobs(jobs.list, line.jobs.value_or(usableProcessors()));
    ExitStatus status = kDone;
    std::vector<std::string> lines;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i].error.empty()) {
            lines.push_back(results[i].output);
            continue;
        }
        complain(results[i].error);
        jobs.runs[i].error = results[i].error;
        status = std::max(status, results[i].badInput ? kBadInput : kReplayFailed);
    }
    writeTables(line, lines, std::move(jobs.runs), settings);
    return status;
}

ExitStatus compareSettings(const CommandLine& line, const Input& input,
                           const std::vector<Setup>& setups) {
    Jobs jobs;
    for (const Setup& setup : setups) {
        jobs.add(input.capture.source, setup, [&] {
            return jsonLine(playInput(input, setup).findings(input), setup, line.jsonEvents);
        });
    }
    return runAll(line, std::move(jobs), setups.size());
}

// Each run reads its capture itself, so that no more is in memory than what is being played.
ExitStatus replayMany(const CommandLine& line, const std::vector<Setup>& setups) {
    Jobs jobs;
    for (const std::string& path : line.captures) {
        for (const Setup& setup : setups) {
            jobs.add(path, setup, [&] {
                const Input input = captureInput(readCapture(path), line.layerPattern);
                return jsonLine(playInput(input, setup).findings(input), setup, line.jsonEvents);
            });
        }
    }
    return runAll(line, std::move(jobs), setups.size());
}

ExitStatus replayCaptures(const CommandLine& line) {
    requireTraceName(line.trace);
    const std::vector<Setup> setups = setupsOf(line);
    if (line.captures.size() > 1) return replayMany(line, setups);
    const Input input = loadInput(line, line.captures.empty() ? "" : line.captures.front());
    if (setups.size() == 1) return replayOne(line, input, setups.front());
    const bool onlyFigures = line.report.empty() && line.trace.empty();
    return onlyFigures ? compareSettings(line, input, setups) : compareHere(line, input, setups);
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

Capture captureToList(const CommandLine& line) {
    return line.captures.empty() ? modelledCapture() : readCapture(line.captures.front());
}

std::vector<CounterSample> samplesToWrite(const CommandLine& line) {
    if (line.workload.empty()) return modelledSession();
    const Input input = workloadInput(line.workload, line.frames);
    return samplesOf(playInput(input, line.setup).run, input.layer().counter);
}

}  // namespace

ExitStatus execute(const CommandLine& line) {
    ExitStatus status = kDone;
    switch (line.task) {
        case CommandLine::Task::kWriteCapture: {
            const std::vector<CounterSample> samples = samplesToWrite(line);
            writeFile(line.writeCapture, [&](std::ostream& out) { writeFtrace(out, samples); });
            break;
        }
        case CommandLine::Task::kListLayers:
            listLayers(std::cout, captureToList(line));
            break;
        case CommandLine::Task::kRecord:
            status = recordExpectations(line);
            break;
        case CommandLine::Task::kCheck:
            status = checkExpectations(line);
            break;
        case CommandLine::Task::kReplay:
            status = replayCaptures(line);
            break;
    }
    finishOutput(std::cout, "standard output");
    return status;
}

}  // namespace replay
