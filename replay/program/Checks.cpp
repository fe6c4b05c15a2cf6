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
#include "replay/capture/ReadCapture.h"
#include "replay/findings/Expectation.h"
#include "replay/plan/Jobs.h"
#include "replay/plan/PlayInput.h"

namespace replay {

namespace {

constexpr char kSuffix[] = ".expect";
constexpr size_t kMaxDifferencesShown = 20;

std::string expectationOf(const CommandLine& line, const std::string& capture) {
    return line.expectation.empty() ? capture + kSuffix : line.expectation;
}

std::string record(const CommandLine& line, const std::string& path) {
    const Input input = captureInput(readCapture(path), line.layerPattern);
    Expectation expectation;
    expectation.layer = input.layer().name.layer;
    expectation.options = line.setup.toOptions();
    expectation.calls = expectedCalls(playInput(input, line.setup).run);
    std::ostringstream text;
    writeExpectation(text, expectation);
    return text.str();
}

Expectation readExpectationFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw InputError(path + ": cannot be opened: " + std::strerror(errno) +
                         "; make it with cindral-replay record");
    }
    return readExpectation(file, path);
}

Input layerNamed(Capture capture, const std::string& layer) {
    Input input;
    for (size_t i = 0; i < capture.layers.size(); ++i) {
        if (capture.layers[i].name.layer != layer) continue;
        input.layerIndex = i;
        input.capture = std::move(capture);
        return input;
    }
    throw InputError(capture.source + ": has no layer " + inQuotes(layer) +
                     ", which the expectation is about");
}

Setup recordedSetup(const Expectation& expectation, const CommandLine& line) {
    std::optional<CommandLine> recorded = parseCommandLine(expectation.options);
    if (!recorded) throw InputError("the expectation asks for help");
    recorded->setup.library = line.setup.library;
    return recorded->setup;
}

// The differences, ready to print; empty if there is none.
std::string check(const CommandLine& line, const std::string& path) {
    const Expectation expectation = readExpectationFile(expectationOf(line, path));
    const Setup setup = recordedSetup(expectation, line);
    const Input input = layerNamed(readCapture(path), expectation.layer);
    const std::vector<std::string> lines =
            differencesOf(expectation.calls, expectedCalls(playInput(input, setup).run));
    if (lines.empty()) return "";
    std::string text = format("%s: %zu differences (- expected, + sent, ~ moved)\n", path.c_str(),
                              lines.size());
    for (size_t i = 0; i < std::min(lines.size(), kMaxDifferencesShown); ++i) {
        text += "  " + lines[i] + "\n";
    }
    if (lines.size() > kMaxDifferencesShown) {
        text += format("  ... and %zu more\n", lines.size() - kMaxDifferencesShown);
    }
    return text;
}

using Job = std::string (*)(const CommandLine&, const std::string&);

// Runs the job for every capture; `onDone` gets what it returned. The worst status of those that
// failed.
ExitStatus forEachCapture(
        const CommandLine& line, Job job,
        const std::function<void(const std::string& path, const std::string& text)>& onDone) {
    std::vector<std::function<std::string()>> jobs;
    for (const std::string& path : line.captures) {
        jobs.emplace_back([&line, path, job] { return job(line, path); });
    }
    const std::vector<JobResult> results = runJobs(jobs, line.jobs.value_or(usableProcessors()));
    ExitStatus status = kDone;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i].error.empty()) {
            onDone(line.captures[i], results[i].output);
        } else {
            complain(results[i].error);
            status = std::max(status, results[i].badInput ? kBadInput : kReplayFailed);
        }
    }
    return status;
}

}  // namespace

ExitStatus recordExpectations(const CommandLine& line) {
    return forEachCapture(line, record, [&](const std::string& path, const std::string& text) {
        const std::string file = expectationOf(line, path);
        writeFile(file, [&](std::ostream& out) { out << text; });
        std::cout << "wrote " << file << '\n';
    });
}

ExitStatus checkExpectations(const CommandLine& line) {
    ExitStatus differences = kDone;
    const ExitStatus failures =
            forEachCapture(line, check, [&](const std::string& path, const std::string& text) {
                if (text.empty()) {
                    std::cout << path << ": as expected\n";
                } else {
                    std::cout << text;
                    differences = kDiffers;
                }
            });
    return std::max(failures, differences);
}

}  // namespace replay
