#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "replay/player/Settings.h"

namespace replay {

struct CommandLine {
    std::string capture;  // empty: the modelled session
    bool listLayers = false;
    std::string layerPattern;  // empty: the only layer there is
    Settings settings;
    std::optional<double> refreshHz;
    bool timeline = false;
    bool closedLoop = false;
    std::string writeCapture;  // where to write the modelled session; empty: replay
    int64_t cpuCostNs = 0;
    std::string library = "libcindral.so";
};

// Nothing if the arguments asked for help or the version, which is then on standard output.
// Throws InputError.
std::optional<CommandLine> parseCommandLine(int argc, char** argv);

}  // namespace replay
