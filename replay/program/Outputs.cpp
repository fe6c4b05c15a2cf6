#include "replay/program/Outputs.h"

#include <nlohmann/json.hpp>

#include <iostream>

#include "replay/base/Output.h"
#include "replay/findings/DecisionLog.h"
#include "replay/findings/Summary.h"
#include "replay/findings/Timeline.h"
#include "replay/report/HtmlReport.h"
#include "replay/report/TraceExport.h"

namespace replay {

namespace {

constexpr char kStandardOutput[] = "-";

void writeReport(const std::string& path, const std::vector<WholeRun>& runs) {
    std::vector<ReportRun> shown;
    for (const WholeRun& run : runs) shown.push_back({run.label, &run.played.findings});
    writeFile(path, [&](std::ostream& out) { writeHtmlReport(out, shown); });
}

void writeTrace(const std::string& path, const std::vector<WholeRun>& runs) {
    std::vector<TraceRun> shown;
    for (const WholeRun& run : runs) {
        shown.push_back({run.label, &run.played.run, &run.played.findings});
    }
    writeFile(path, [&](std::ostream& out) { writeTrace(out, shown); });
}

}  // namespace

std::string jsonLine(const CommandLine& line, const Setup& setup, const Findings& findings) {
    nlohmann::json json =
            toJson(findings, line.jsonEvents ? Detail::kEverything : Detail::kFigures);
    json["setting"] = setup.label;
    // Names in a capture may hold any bytes.
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void writeJson(const CommandLine& line, const std::vector<std::string>& lines) {
    const auto write = [&](std::ostream& out) {
        for (const std::string& text : lines) out << text << '\n';
    };
    if (line.json == kStandardOutput) return write(std::cout);
    if (!line.json.empty()) writeFile(line.json, write);
}

void writeText(const CommandLine& line, const Played& played) {
    if (line.json == kStandardOutput) return;
    writeSummary(std::cout, summarize(played.findings), standardOutputIsTerminal());
    if (line.log) {
        std::cout << "\nDecisions\n";
        writeDecisionLog(std::cout, played.findings);
    }
    if (line.timeline) {
        std::cout << "\nTimeline\n";
        writeTimeline(std::cout, played.run);
    }
}

void writeTables(const CommandLine& line, const std::vector<ComparedRun>& runs) {
    if (line.json == kStandardOutput) return;
    const TableStyle style{standardOutputIsTerminal()};
    if (line.captures.size() > 1) {
        writeOverview(std::cout, runs, runs.size() / line.captures.size(), style);
    } else {
        writeComparison(std::cout, runs, style);
    }
}

void writeFiles(const CommandLine& line, const std::vector<WholeRun>& runs) {
    if (!line.report.empty()) writeReport(line.report, runs);
    if (!line.trace.empty()) writeTrace(line.trace, runs);
}

}  // namespace replay
