#pragma once

#include <cstdint>
#include <optional>

// What periods, rates and render times mean: functions of their arguments alone. Times are
// nanoseconds.

namespace android::cindral {

// Class of a display that runs at no known rate, and of a layer whose rate is none of a display's.
inline constexpr int32_t kUnexpectedDisplayClass = 0;
inline constexpr int32_t kNoFrameRateClass = -1;

// The refresh class (Hz) of a vsync period. One in a gap between the bands belongs to no display that
// the library knows.
inline int32_t displayClassOf(int64_t vsyncPeriod) {
    struct Band {
        int64_t first, last;  // inclusive
        int32_t displayClass;
    };
    constexpr Band kBands[] = {
            {15'000'001, 17'999'999, 60}, {12'500'001, 14'899'999, 75},
            {10'500'001, 11'699'999, 90}, {8'000'001, 8'999'999, 120},
            {6'800'001, 7'699'999, 144},
    };
    for (const Band& band : kBands) {
        if (vsyncPeriod >= band.first && vsyncPeriod <= band.last) return band.displayClass;
    }
    return kUnexpectedDisplayClass;
}

// The display rate that a measured frame rate stands for. A rate in a gap stands for none, which
// never equals the class of a display whose period is known.
inline int32_t frameRateClassOf(float fps) {
    struct Band {
        float above, below;  // exclusive
        int32_t rateClass;
    };
    constexpr Band kBands[] = {
            {27.0F, 32.0F, 30}, {47.0F, 62.0F, 60},    {67.0F, 77.0F, 75},
            {77.0F, 92.0F, 90}, {107.0F, 122.0F, 120}, {130.0F, 147.0F, 144},
    };
    for (const Band& band : kBands) {
        if (fps > band.above && fps < band.below) return band.rateClass;
    }
    return kNoFrameRateClass;
}

// Frames per second, from the sum of the frames' intervals. In single precision throughout.
inline float frameRateOf(float intervalSum, int32_t frameCount) {
    return 1.0F / (intervalSum / static_cast<float>(frameCount) / 1e9F);
}

// How late a frame may be before it counts as late, and how early before it counts as early.
inline constexpr int64_t kFrameToleranceNs = 2'000'000;
// A frame that came after a hint and is less late than this weakens the expectation; from here to
// the tolerance nothing moves.
inline constexpr int64_t kExpectationWeakensBelowNs = 1'000'000;

enum class FramePunctuality { kEarly, kOnTime, kLate };

inline FramePunctuality punctualityOf(int64_t renderTime, int64_t vsyncPeriod) {
    if (renderTime - vsyncPeriod > kFrameToleranceNs) return FramePunctuality::kLate;
    if (renderTime + kFrameToleranceNs < vsyncPeriod) return FramePunctuality::kEarly;
    return FramePunctuality::kOnTime;
}

// After a boost hint: whether the boost expectation goes up (true), down (false) or stays.
inline std::optional<bool> expectationStep(int64_t renderTime, int64_t vsyncPeriod) {
    const int64_t late = renderTime - vsyncPeriod;
    if (late > kFrameToleranceNs) return true;
    if (late < kExpectationWeakensBelowNs) return false;
    return std::nullopt;
}

// Two vsyncs between consumed buffers mean that the consumer missed at least one. The gap counts in
// vsyncs rounded to the nearest, halves up, so that one and a half make two.
inline bool isStutter(int64_t gap, int64_t vsyncPeriod) {
    // Most gaps are far from that, and need no division to tell.
    if (vsyncPeriod > 0 && gap < vsyncPeriod + vsyncPeriod / 4) return false;
    return static_cast<float>(gap) / static_cast<float>(vsyncPeriod) >= 1.5F;
}

// The time between a missed deadline's checkpoints: slow displays have room for two in a period.
inline int64_t checkpointSpacing(int64_t vsyncPeriod, int32_t displayClass) {
    return displayClass > 60 ? vsyncPeriod : vsyncPeriod / 2;
}

}  // namespace android::cindral
