#pragma once

// How durations are distributed: small enough to stand in a row, and exact to add up. Percentiles of
// a fleet come from sketches that were added up, since a mean of percentiles is no percentile.

#include <cstdint>
#include <map>

namespace replay {

// How many values there are of each magnitude: 64 buckets an octave, so that a percentile is off by at
// most one part in 128 (0.8 %). The same on every machine and in any order of adding.
using Sketch = std::map<int, uint64_t>;

// Values below 1 count as 0.
void addTo(Sketch& sketch, int64_t value);
void addTo(Sketch& sketch, const Sketch& other);

// The value that at least `percent` of the values do not exceed; 0 without values.
int64_t percentileOf(const Sketch& sketch, double percent);

}  // namespace replay
