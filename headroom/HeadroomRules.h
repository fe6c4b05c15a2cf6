#pragma once

#include <algorithm>
#include <cstdint>

// The preset headroom and its bounds: functions of their arguments alone. Nanoseconds throughout.

namespace android::cindral {

// How far one adjustment moves the headroom.
inline constexpr int64_t kHeadroomStepNs = 1'000'000;

// The most of the vsync period that the headroom may take.
inline constexpr double kMaxHeadroomShare = 0.9;
inline constexpr auto kMaxMinRate = static_cast<float>(kMaxHeadroomShare);

// Default of the smallest headroom, as a share of the vsync period.
inline constexpr double kDefaultMinRate = 0.5;

struct HeadroomBounds {
    int64_t min;
    int64_t max;
};

// The smallest headroom as a share of the period: the configured rate, raised in proportion to
// displays faster than 60 Hz, and capped. Every step is rounded to the precision written here, so
// that the bounds come out the same everywhere.
inline float minHeadroomFactor(int32_t refreshRate, float minRate) {
    const float proportional = static_cast<float>(refreshRate) / 60.0F * minRate;
    const auto scaled = static_cast<float>(static_cast<double>(proportional) * 0.8);
    if (minRate > scaled) return minRate;
    return static_cast<double>(scaled) > kMaxHeadroomShare ? kMaxMinRate : scaled;
}

// A configured rate may be any number at all; beyond this, which is far from every period, the
// headroom and what is computed from it would leave their ranges.
inline constexpr float kMaxHeadroomMagnitudeNs = 1e15F;

inline int64_t toHeadroom(float nanoseconds) {
    if (!(nanoseconds > -kMaxHeadroomMagnitudeNs))
        return static_cast<int64_t>(-kMaxHeadroomMagnitudeNs);
    return static_cast<int64_t>(std::min(nanoseconds, kMaxHeadroomMagnitudeNs));
}

// The lower bound is computed in single and the upper one in double precision, so that at some
// periods the lower one ends up 1 ns above the upper one.
inline HeadroomBounds headroomBounds(int64_t vsyncPeriod, int32_t refreshRate, float minRate) {
    const float min = minHeadroomFactor(refreshRate, minRate) * static_cast<float>(vsyncPeriod);
    const double max = static_cast<double>(vsyncPeriod) * kMaxHeadroomShare;
    return {toHeadroom(min), static_cast<int64_t>(max)};
}

// Without the frame regulator nobody boosts a late frame on a display faster than 60 Hz, so the
// whole headroom is kept from the start.
inline bool needsFullHeadroom(int32_t refreshRate, bool frameRegulator) {
    return refreshRate >= 61 && !frameRegulator;
}

// One step up or down. Only equality with the bound stops a step, so that a headroom beyond a bound
// is brought back to it.
inline int64_t raisedHeadroom(int64_t headroom, int64_t max) {
    return headroom == max ? headroom : std::min(headroom + kHeadroomStepNs, max);
}

inline int64_t loweredHeadroom(int64_t headroom, int64_t min) {
    return headroom == min ? headroom : std::max(headroom - kHeadroomStepNs, min);
}

}  // namespace android::cindral
