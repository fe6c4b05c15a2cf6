#pragma once

// The display's beat: measured from the vsyncs of a capture, and continued where the capture has
// none because the compositor slept. Pure functions; all times in nanoseconds of one clock.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace replay {

// Measured anew, and not another rate.
bool isSamePeriod(int64_t a, int64_t b);

// The display's period from a time on.
struct RateChange {
    int64_t timeNs = 0;
    int64_t periodNs = 0;
};

// The display's rate over time.
struct Refresh {
    int64_t periodNs = 0;             // at first
    std::vector<RateChange> changes;  // in the order of time; most displays have none

    int64_t periodAt(int64_t timeNs) const;
    // One for each of its rates.
    std::vector<int64_t> periodsNs() const;
    int64_t longestPeriodNs(int64_t beginNs = INT64_MIN, int64_t endNs = INT64_MAX) const;
};

// The vsyncs to play and where they come from.
struct VsyncTrack : Refresh {
    std::vector<int64_t> timesNs;
    std::string source;    // the counter, or "--refresh"
    size_t continued = 0;  // how many of the times are not from the capture
};

// The period of ascending vsync times, of which some may be missing; nothing if there are too few.
std::optional<int64_t> measurePeriodNs(const std::vector<int64_t>& timesNs);

// The same for a display that may change its rate: a rate counts once it has been kept for about
// half a second. `isFaster` tells whether something else shows that the display beat with the given
// period between two times, where these vsyncs are just as well every second one of it.
using FasterBeat = std::function<bool(int64_t beginNs, int64_t endNs, int64_t periodNs)>;
std::optional<Refresh> measureRefresh(const std::vector<int64_t>& timesNs,
                                      const FasterBeat& isFaster);

// `timesNs` without holes from `startNs` to `endNs`, both included.
std::vector<int64_t> continueVsyncs(const std::vector<int64_t>& timesNs, const Refresh& refresh,
                                    int64_t startNs, int64_t endNs);

}  // namespace replay
