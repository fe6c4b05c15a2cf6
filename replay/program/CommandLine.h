#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/plan/Input.h"
#include "replay/plan/Setup.h"

namespace replay {

struct CommandLine {
    enum class Task { kReplay, kListLayers, kWriteCapture, kRecord, kCheck };

    Task task = Task::kReplay;
    std::vector<std::string> captures;  // none: the modelled session, or the workload
    InputChoice input;                  // but for the capture, the same for all
    Setup setup;
    std::vector<std::string> comparisons;
    bool compareWorks = false;  // --work all
    bool timeline = false;
    bool log = false;
    std::string json;  // where to; "-" is standard output, empty: nowhere
    bool jsonEvents = false;
    std::string report;
    std::string trace;
    std::string writeCapture;
    std::string expectation;  // empty: beside the capture
    std::optional<unsigned> jobs;

    std::vector<InputChoice> inputs() const;
    unsigned jobsAtATime() const;
};

// Nothing if the arguments asked for help or the version, which is then on standard output.
// Throws InputError.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace replay
