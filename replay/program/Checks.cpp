#include "replay/program/Checks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/findings/Expectation.h"
#include "replay/plan/Plan.h"

namespace replay {

namespace {

constexpr char kSuffix[] = ".expect";
constexpr size_t kMaxDifferencesShown = 20;

Expectation readExpectationFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw InputError(path + ": cannot be opened: " + std::strerror(errno) +
                         "; make it with cindral-replay record");
    }
    return readExpectation(file, path);
}

// The run that was recorded.
PlannedRun recordedRun(const CommandLine& line, const std::string& capture,
                       const Expectation& expectation) {
    std::vector<std::string> options = expectation.options;
    options.insert(options.end(), {"--", capture});
    const std::optional<CommandLine> recorded = parseCommandLine(options);
    if (!recorded) throw InputError("the expectation asks for help");
    PlannedRun run{recorded->inputs().front(), recorded->setup};
    run.input.layer = expectation.layer;
    run.setup.library = line.setup.library;
    return run;
}

std::string recordingOf(const PlannedRun& run, const Played& played) {
    Expectation expectation;
    expectation.layer = played.findings.layer;
    expectation.options = run.setup.toOptions();
    const std::vector<std::string> part = run.input.toOptions();
    expectation.options.insert(expectation.options.end(), part.begin(), part.end());
    expectation.events = expectedEvents(played.findings, played.run);
    std::ostringstream text;
    writeExpectation(text, expectation);
    return text.str();
}

// Ready to print; empty if there is none.
std::string differenceText(const std::string& capture, const Expectation& expectation,
                           const Played& played) {
    const std::vector<std::string> lines =
            differencesOf(expectation.events, expectedEvents(played.findings, played.run));
    if (lines.empty()) return "";
    std::string text = format("%s: %zu differences (- expected, + new, ~ changed)\n",
                              capture.c_str(), lines.size());
    for (size_t i = 0; i < std::min(lines.size(), kMaxDifferencesShown); ++i) {
        text += "  " + lines[i] + "\n";
    }
    if (lines.size() > kMaxDifferencesShown) {
        text += format("  ... and %zu more\n", lines.size() - kMaxDifferencesShown);
    }
    return text;
}

}  // namespace

std::string expectationOf(const CommandLine& line, const std::string& capture) {
    return line.expectation.empty() ? capture + kSuffix : line.expectation;
}

ExitStatus recordExpectations(const CommandLine& line) {
    const std::vector<JobResult> results =
            playAll(everyCombination(line.inputs(), {line.setup}), line.jobsAtATime(), recordingOf);
    for (size_t i = 0; i < results.size(); ++i) {
        if (!results[i].error.empty()) continue;
        const std::string file = expectationOf(line, line.captures[i]);
        writeFile(file, [&](std::ostream& out) { out << results[i].output; });
        std::cout << "wrote " << file << '\n';
    }
    return complainOfFailures(results);
}

ExitStatus checkExpectations(const CommandLine& line) {
    // The job reads the expectation itself, so that a broken one costs only its own capture.
    std::vector<std::function<std::string()>> jobs;
    for (const std::string& capture : line.captures) {
        jobs.emplace_back([&] {
            const Expectation expectation = readExpectationFile(expectationOf(line, capture));
            const PlannedRun run = recordedRun(line, capture, expectation);
            return differenceText(capture, expectation, playInput(openInput(run.input), run.setup));
        });
    }
    const std::vector<JobResult> results = runJobs(jobs, line.jobsAtATime());
    ExitStatus status = complainOfFailures(results);
    for (size_t i = 0; i < results.size(); ++i) {
        if (!results[i].error.empty()) continue;
        std::cout << (results[i].output.empty() ? line.captures[i] + ": as expected\n"
                                                : results[i].output);
        if (!results[i].output.empty()) status = std::max(status, kDiffers);
    }
    return status;
}

}  // namespace replay
