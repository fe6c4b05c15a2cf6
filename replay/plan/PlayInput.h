#pragma once

// From an input and a setup to findings: what main, the comparisons and the checks have in common.

#include <optional>
#include <string>

#include "replay/capture/Capture.h"
#include "replay/findings/Findings.h"
#include "replay/plan/Setup.h"
#include "replay/play/Play.h"

namespace replay {

// A capture with the layer that was chosen, or a synthetic workload with a layer made up for it.
struct Input {
    Capture capture;
    size_t layerIndex = 0;
    std::string workload;  // empty: the capture is what is played
    int frames = 0;        // of the workload

    const LayerEvents& layer() const { return capture.layers.at(layerIndex); }
};

// `layerPattern` chooses among the layers; empty will do if there is only one. Throws InputError.
Input captureInput(Capture capture, const std::string& layerPattern);
Input workloadInput(const std::string& name, int frames);

struct Played {
    Run run;
    VsyncTrack vsyncs;

    Findings findings(const Input& input) const {
        return findingsOf(input.capture, input.layer(), vsyncs, run);
    }
};

// One run at a time in a process. Throws InputError, or ReplayError, after which no other run is
// possible in this process.
Played playInput(const Input& input, const Setup& setup);

}  // namespace replay
