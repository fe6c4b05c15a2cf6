#pragma once

// What the library did in a run, sorted by kind.

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "replay/findings/Statistics.h"
#include "replay/player/Player.h"

namespace replay {

// Times are ns since the first event of the capture.
struct Effects {
    static constexpr int kCheckpoints = 3;

    std::string decision;             // the library's own words, "[GFAR:1][PHR:1]"
    std::vector<std::string> errors;  // its other lines at error priority
    bool debugSeen = false;  // without the debug switch it does not tell when its regulators run
    std::optional<int64_t> environmentNs;  // it began to build its environment for the layer
    OnTimes frameRegulator;
    OnTimes headroomRegulator;

    std::array<size_t, kCheckpoints> boosts{};  // by checkpoint
    size_t releases = 0;
    OnTimes boosted;

    std::vector<int> negativeBoosts;  // their strengths
    size_t negativeReleases = 0;
    OnTimes lowered;
    size_t unknownHints = 0;

    struct Lock {
        size_t acquired = 0;
        size_t released = 0;
        OnTimes held;
    };
    Lock pl;
    Lock coreControl;
};

Effects effectsOf(const Run& run);

}  // namespace replay
