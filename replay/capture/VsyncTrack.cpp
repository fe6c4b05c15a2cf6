#include "replay/capture/VsyncTrack.h"

#include <algorithm>

namespace replay {

namespace {

constexpr size_t kMinIntervals = 8;
// Longer pauses tell little about the period: the display may have been off or in another mode.
constexpr int64_t kMaxPeriodsPerInterval = 8;
// The shortest intervals are single periods; a tenth of them may be freaks.
constexpr size_t kFreakShare = 10;

int64_t roundedQuotient(int64_t dividend, int64_t divisor) {
    return (dividend + divisor / 2) / divisor;
}

int64_t quantile(std::vector<int64_t>& values, size_t index) {
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(index), values.end());
    return values[index];
}

}  // namespace

std::optional<int64_t> measurePeriodNs(const std::vector<int64_t>& timesNs) {
    std::vector<int64_t> intervals;
    for (size_t i = 1; i < timesNs.size(); ++i) {
        if (timesNs[i] > timesNs[i - 1]) intervals.push_back(timesNs[i] - timesNs[i - 1]);
    }
    if (intervals.size() < kMinIntervals) return std::nullopt;
    // A game at half the rate leaves every second vsync out, so the plain median would be two
    // periods.
    const int64_t guess = quantile(intervals, intervals.size() / kFreakShare);
    std::vector<int64_t> periods;
    for (const int64_t interval : intervals) {
        const int64_t count = roundedQuotient(interval, guess);
        if (count >= 1 && count <= kMaxPeriodsPerInterval) periods.push_back(interval / count);
    }
    return quantile(periods, periods.size() / 2);
}

std::vector<int64_t> continueVsyncs(const std::vector<int64_t>& timesNs, int64_t periodNs,
                                    int64_t startNs, int64_t endNs) {
    std::vector<int64_t> result;
    const int64_t first = timesNs.empty() ? startNs : timesNs.front();
    int64_t next = first - (first - startNs) / periodNs * periodNs;
    for (const int64_t known : timesNs) {
        for (; next + periodNs / 2 < known; next += periodNs) result.push_back(next);
        result.push_back(known);
        next = known + periodNs;
    }
    for (; next <= endNs; next += periodNs) result.push_back(next);
    return result;
}

}  // namespace replay
