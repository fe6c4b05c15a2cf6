#pragma once

// Pure arithmetic on lists of times in ns.

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace replay {

// The smallest value that at least `percent` of the values do not exceed; 0 without values.
int64_t percentile(std::vector<int64_t> values, int percent);

std::vector<int64_t> differences(const std::vector<int64_t>& timesNs);

// Spans of time during which something was on, from a sequence of switches.
class OnTimes {
  public:
    void on(int64_t timeNs);
    void off(int64_t timeNs);
    // On from `timeNs` for as long as said, unless it is switched or set anew before.
    void onFor(int64_t timeNs, int64_t durationNs);
    void finish(int64_t endNs);

    const std::vector<std::pair<int64_t, int64_t>>& spans() const { return mSpans; }
    int64_t totalNs() const;

  private:
    void lapse(int64_t timeNs);

    std::vector<std::pair<int64_t, int64_t>> mSpans;
    std::optional<int64_t> mSince;
    int64_t mUntilNs = INT64_MAX;
};

}  // namespace replay
