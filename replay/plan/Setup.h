#pragma once

// Under which conditions an input is played. Several of them are what --compare compares.

#include <optional>
#include <string>
#include <vector>

#include "replay/play/Clocks.h"
#include "replay/play/Settings.h"
#include "replay/play/Work.h"

namespace replay {

// The game and the compositor react; see docs/model.md.
struct ModelChoice {
    WorkEstimator work;
    std::optional<int> buffers;  // nothing: what the capture shows, or three
    HintEffects effects;
};

struct Setup {
    std::string label = "as given";
    Settings settings;
    std::optional<double> refreshHz;
    bool withLibrary = true;
    std::optional<ModelChoice> model;
    std::string library = "libcindral.so";
    int64_t cpuCostNs = 0;

    // The options that make this setup, so that it can be written down.
    std::vector<std::string> toOptions() const;
};

// `base` with the changes of one --compare, "LABEL: CHANGE, CHANGE" or "CHANGE, CHANGE". A change
// is PROPERTY=VALUE, gfar=on|off, phr=on|off, negative-boost=on|off, refresh=HZ, none, model,
// captured, work=NAME, buffers=N, boost-speedup=PERCENT or negative-slowdown=PERCENT. Throws
// InputError.
Setup changedSetup(const Setup& base, const std::string& comparison);

}  // namespace replay
