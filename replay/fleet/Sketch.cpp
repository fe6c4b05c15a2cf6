#include "replay/fleet/Sketch.h"

#include <algorithm>
#include <cmath>

namespace replay {

namespace {

constexpr int kBuckets = 64;  // an octave

// A value is a fraction from a half to one times a power of two.
int bucketOf(int64_t value) {
    if (value < 1) return 0;
    int octave = 0;
    const double fraction = std::frexp(static_cast<double>(value), &octave);
    return octave * kBuckets + static_cast<int>((fraction - 0.5) * 2 * kBuckets);
}

int64_t middleOf(int bucket) {
    if (bucket == 0) return 0;
    const double fraction = 0.5 + (bucket % kBuckets + 0.5) / (2 * kBuckets);
    return static_cast<int64_t>(std::ldexp(fraction, bucket / kBuckets));
}

}  // namespace

void addTo(Sketch& sketch, int64_t value) {
    ++sketch[bucketOf(value)];
}

void addTo(Sketch& sketch, const Sketch& other) {
    for (const auto& [bucket, count] : other) sketch[bucket] += count;
}

int64_t percentileOf(const Sketch& sketch, double percent) {
    uint64_t all = 0;
    for (const auto& [bucket, count] : sketch) all += count;
    const double rank = std::max(1.0, std::ceil(static_cast<double>(all) * percent / 100));
    uint64_t seen = 0;
    for (const auto& [bucket, count] : sketch) {
        seen += count;
        if (static_cast<double>(seen) >= rank) return middleOf(bucket);
    }
    return 0;
}

}  // namespace replay
