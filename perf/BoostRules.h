#pragma once

#include <cstdint>
#include <optional>

// What the boost engine sends for a missed deadline, and how it learns whether the mildest boost is
// worth sending: functions of their arguments alone.

namespace android::cindral {

inline constexpr int kCheckpoint1 = 1;
inline constexpr int kCheckpoint2 = 2;
inline constexpr int kCheckpoint3 = 3;

struct Boost {
    const char* text;  // trace section and log line
    int durationMs;
    int type;
};

// Layers above this rate (Hz) have frames of less than 15 ms and get the shorter, milder first boost. The
// tracker does not tell the rate: it stays 60, and every layer gets the longer one.
inline constexpr int kMildBoostAboveFps = 66;

// The boost for a checkpoint, or nothing for a number that is no checkpoint.
inline std::optional<Boost> boostFor(int checkpoint, int fps, int frameIntervalMs) {
    const bool mild = fps > kMildBoostAboveFps;
    switch (checkpoint) {
        case kCheckpoint1:
            return Boost{"Boost CHECKPOINT1_NOT_QUEUED", mild ? 4 : 8, mild ? 1300 : 1500};
        case kCheckpoint2:
            return Boost{"Boost CHECKPOINT2_NOT_QUEUED", frameIntervalMs, 2000};
        case kCheckpoint3:
            return Boost{"Boost CHECKPOINT3_NOT_QUEUED", 1000, 10000};
        default:
            return std::nullopt;
    }
}

// The expectation degree says how often frames stayed late after a hint. A checkpoint-1 boost is
// sent only while it is positive, unless the layer runs negative boosts, which a late frame must
// end at once.
inline constexpr int32_t kMaxBoostExpectation = 3;
inline constexpr int32_t kMinBoostExpectation = -3;

inline bool isBoostSkipped(int checkpoint, int32_t expectation, bool negativeBoosts) {
    return checkpoint == kCheckpoint1 && expectation <= 0 && !negativeBoosts;
}

// The expectation after a step up or down; nothing at the bound, where there is nothing to store.
inline std::optional<int32_t> steppedExpectation(int32_t expectation, bool up) {
    if (up ? expectation >= kMaxBoostExpectation : expectation <= kMinBoostExpectation)
        return std::nullopt;
    return up ? expectation + 1 : expectation - 1;
}

}  // namespace android::cindral
