#include "replay/fleet/Sketch.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int kBitsBelow = 6;  // of a value, after its highest one
constexpr int kBuckets = 1 << kBitsBelow;
constexpr int kMaxBucket = (62 - kBitsBelow + 2) * kBuckets - 1;

// Values below 2 * kBuckets have a bucket each.
int bucketOf(int64_t value) {
    if (value < kBuckets) return static_cast<int>(std::max<int64_t>(0, value));
    const int shift = 63 - __builtin_clzll(static_cast<uint64_t>(value)) - kBitsBelow;
    return (shift + 1) * kBuckets + static_cast<int>((value >> shift) - kBuckets);
}

int64_t middleOf(int bucket) {
    if (bucket < kBuckets) return bucket;
    const int shift = bucket / kBuckets - 1;
    const int64_t least = static_cast<int64_t>(kBuckets + bucket % kBuckets) << shift;
    return least + ((int64_t{1} << shift) >> 1);
}

}  // namespace

void Sketch::add(int64_t value) {
    ++mCounts[bucketOf(value)];
}

void Sketch::merge(const Sketch& other) {
    for (const auto& [bucket, count] : other.mCounts) mCounts[bucket] += count;
}

int64_t Sketch::percentile(double percent) const {
    uint64_t all = 0;
    for (const auto& [bucket, count] : mCounts) all += count;
    const auto rank = std::ceil(static_cast<double>(all) * percent / 100);
    uint64_t seen = 0;
    for (const auto& [bucket, count] : mCounts) {
        seen += count;
        if (static_cast<double>(seen) >= std::max(1.0, rank)) return middleOf(bucket);
    }
    return 0;
}

std::string Sketch::text() const {
    std::string result;
    for (const auto& [bucket, count] : mCounts) {
        result +=
                (result.empty() ? "" : " ") + std::to_string(bucket) + ":" + std::to_string(count);
    }
    return result;
}

Sketch Sketch::parse(const std::string& text) {
    Sketch sketch;
    std::istringstream in(text);
    int bucket = 0;
    char colon = 0;
    uint64_t count = 0;
    while (in >> bucket >> colon >> count) {
        if (colon != ':' || bucket < 0 || bucket > kMaxBucket) break;
        sketch.mCounts[bucket] += count;
    }
    if (!in.eof()) throw InputError(inQuotes(text) + " is no summary of a distribution");
    return sketch;
}

}  // namespace replay
