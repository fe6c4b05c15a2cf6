#pragma once

// How durations are distributed: small enough to stand in a row, and exact to add up. Percentiles of
// a fleet come from sketches that were merged, since a mean of percentiles is no percentile.

#include <cstdint>
#include <map>
#include <string>

namespace replay {

// Counts of values by magnitude: 64 buckets an octave, so that a percentile is off by at most one
// part in 128 (0.8 %). Integers only, hence the same on every machine and in any order of merging.
class Sketch {
  public:
    // Negative values count as 0.
    void add(int64_t value);
    void merge(const Sketch& other);

    // The value that at least `percent` of the values do not exceed; 0 without values.
    int64_t percentile(double percent) const;

    // "1063:5 1064:7": bucket and count, ascending. What parse() takes; it throws InputError.
    std::string text() const;
    static Sketch parse(const std::string& text);

  private:
    std::map<int, uint64_t> mCounts;
};

}  // namespace replay
