#pragma once

// What a performance engineer asks of a run: what was sent, what it cost, how the frames did.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/player/Player.h"

namespace replay {

// One figure, ready to print; an empty label begins a section of that name.
struct SummaryRow {
    std::string label;
    std::string value;
};

std::vector<SummaryRow> summarize(const Capture& capture, const LayerEvents& layer,
                                  const VsyncTrack& vsyncs, const Run& run);

void writeSummary(std::ostream& out, const std::vector<SummaryRow>& rows);

}  // namespace replay
