#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/fleet/Tune.h"
#include "replay/plan/Input.h"
#include "replay/plan/Setup.h"

namespace replay {

// Of sweep, gather and tune.
struct FleetOptions {
    std::string rows;  // folder
    unsigned shard = 1;
    unsigned shards = 1;
    std::string table;
    std::string csv;
    std::string base;  // label of the setting that the others are compared with
    TuneOptions tune;  // as far as only it has them
    std::string properties;
};

struct CommandLine {
    enum class Task {
        kReplay,
        kListLayers,
        kWriteCapture,
        kRecord,
        kCheck,
        kSweep,
        kGather,
        kTune
    };

    Task task = Task::kReplay;
    std::vector<std::string> captures;  // none: a workload
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
    bool force = false;  // overwrite what is none of our outputs
    FleetOptions fleet;

    std::vector<InputChoice> inputs() const;
    unsigned jobsAtATime() const;
};

// Nothing if the arguments asked for help or the version, which is then on standard output.
// Throws InputError.
std::optional<CommandLine> parseCommandLine(const std::vector<std::string>& arguments);

}  // namespace replay
