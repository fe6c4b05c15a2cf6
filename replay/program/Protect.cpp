#include "replay/program/Protect.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/capture/FtraceWriter.h"
#include "replay/findings/Expectation.h"
#include "replay/fleet/Gather.h"
#include "replay/fleet/Table.h"
#include "replay/fleet/Tune.h"
#include "replay/program/Checks.h"
#include "replay/report/HtmlReport.h"
#include "replay/report/TraceWriter.h"

namespace replay {

namespace {

namespace fs = std::filesystem;

constexpr char kStandardStream[] = "-";
constexpr size_t kFirstBytes = 1024;

struct Output {
    std::string option;
    std::string path;
    bool (*isOurs)(std::string_view firstBytes);
};

// Keys stand in alphabetical order.
bool isRunJson(std::string_view firstBytes) {
    return startsWith(firstBytes, "{\"boosts\":") || startsWith(firstBytes, "{\"capture\":");
}

std::vector<Output> outputsOf(const CommandLine& line) {
    std::vector<Output> outputs = {{"--json", line.json, isRunJson},
                                   {"--report", line.report, isReport},
                                   {"--trace", line.trace, isTrace},
                                   {"--write-capture", line.writeCapture, isWrittenFtrace},
                                   {"--table", line.fleet.table, isTable},
                                   {"--csv", line.fleet.csv, isTableCsv},
                                   {"--properties", line.fleet.properties, isPropertyFile}};
    if (line.task == CommandLine::Task::kRecord) {
        for (const std::string& capture : line.captures) {
            outputs.push_back({"record", expectationOf(line, capture), isExpectation});
        }
    }
    outputs.erase(std::remove_if(outputs.begin(), outputs.end(),
                                 [](const Output& output) {
                                     return output.path.empty() || output.path == kStandardStream;
                                 }),
                  outputs.end());
    return outputs;
}

std::vector<std::string> inputsOf(const CommandLine& line) {
    std::vector<std::string> inputs = line.captures;
    if (line.task == CommandLine::Task::kCheck) {
        for (const std::string& capture : line.captures) {
            inputs.push_back(expectationOf(line, capture));
        }
    }
    inputs.push_back(line.setup.library);
    return inputs;
}

bool statOf(const std::string& path, int stream, struct stat& status) {
    const int result =
            path == kStandardStream ? fstat(stream, &status) : stat(path.c_str(), &status);
    return result == 0 && S_ISREG(status.st_mode);
}

// One file, by whatever names and links; of two that do not exist, those that will be one.
bool isSameFile(const std::string& input, const std::string& output) {
    struct stat a = {};
    struct stat b = {};
    if (statOf(input, STDIN_FILENO, a) && statOf(output, STDOUT_FILENO, b)) {
        return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
    }
    std::error_code error;
    return output != kStandardStream && !fs::is_other(output, error) &&
           fs::weakly_canonical(input, error) == fs::weakly_canonical(output, error);
}

void requireOurs(const Output& output) {
    std::error_code error;
    if (!fs::is_regular_file(output.path, error)) return;
    std::string bytes(kFirstBytes, '\0');
    std::ifstream file(output.path, std::ios::binary);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    if (bytes.empty() || output.isOurs(bytes)) return;
    throw InputError(output.option + " " + inQuotes(output.path) +
                     ": is there and nothing that this option writes; give another name, or "
                     "--force to overwrite it");
}

}  // namespace

void requireSafeOutputs(const CommandLine& line) {
    const std::vector<Output> outputs = outputsOf(line);
    for (const std::string& input : inputsOf(line)) {
        for (const Output& output : outputs) {
            if (!isSameFile(input, output.path)) continue;
            throw InputError(output.option + " " + inQuotes(output.path) + ": is the input " +
                             inQuotes(input) + "; give another name");
        }
        if (isSameFile(input, kStandardStream)) {
            throw InputError("standard output is the input " + inQuotes(input) +
                             "; write to another file");
        }
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (!isSameFile(outputs[j].path, outputs[i].path)) continue;
            throw InputError(outputs[i].option + " " + inQuotes(outputs[i].path) + ": is what " +
                             outputs[j].option + " writes; give another name");
        }
        if (!line.force) requireOurs(outputs[i]);
    }
}

}  // namespace replay
