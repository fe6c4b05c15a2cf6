#pragma once

// The display's beat: measured from the vsyncs of a capture, and continued where the capture has
// none because the compositor slept. Pure functions; all times in nanoseconds of one clock.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace replay {

// The vsyncs to play and where they come from.
struct VsyncTrack {
    int64_t periodNs = 0;
    std::vector<int64_t> timesNs;
    std::string source;    // the counter, or "--refresh"
    size_t continued = 0;  // how many of the times are not from the capture
};

// The period of ascending vsync times, of which some may be missing; nothing if there are too few.
std::optional<int64_t> measurePeriodNs(const std::vector<int64_t>& timesNs);

// `timesNs` without holes from `startNs` to `endNs`, both included.
std::vector<int64_t> continueVsyncs(const std::vector<int64_t>& timesNs, int64_t periodNs,
                                    int64_t startNs, int64_t endNs);

}  // namespace replay
