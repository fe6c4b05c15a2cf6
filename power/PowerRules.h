#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

// How strong a negative boost should be, and how its target adapts: functions of their arguments
// alone. Times and periods are nanoseconds. A threshold is the share of the vsync period, in
// percent, that a frame may take before the power controller leaves it alone. A coefficient is 0
// for no reduction and more negative for a stronger one.

namespace android::cindral {

inline constexpr int32_t kInitialThresh = 70;
inline constexpr int32_t kMinThresh = 60;
inline constexpr int32_t kMaxRenderTimeThresh = 90;
inline constexpr int32_t kInitialNegativeBoostThresh = -30;

// The target creeps up while frames are early and falls back fast when they are late.
inline constexpr int32_t kThreshRaise = 3;
inline constexpr int32_t kThreshDrop = 10;

// A smaller change of the coefficient is not worth a call of the service.
inline constexpr int32_t kMinCoeChange = 4;

// Energy evaluations that are skipped after a missed frame.
inline constexpr int32_t kCooldownEvaluations = 2;

// The service drops a negative boost after this time. The first frame after that, not before, sends it again.
inline constexpr int kNegativeBoostDurationMs = 500;
inline constexpr int64_t kRefreshIntervalNs = 500'000'000;

inline int32_t clampedRenderTimeThresh(int32_t percent) {
    return std::clamp(percent, kMinThresh, kMaxRenderTimeThresh);
}

inline int64_t targetRenderTime(int64_t vsyncPeriod, int32_t thresh) {
    return vsyncPeriod * thresh / 100;
}

// Whether a frame leaves room for saving energy.
inline bool isEarly(int64_t renderTime, int64_t vsyncPeriod, int64_t target) {
    return renderTime >= 0 && renderTime <= vsyncPeriod && renderTime <= target;
}

// By how much the coefficient should change for an early frame: -100 (no work at all) .. 0 (on
// target).
inline int32_t coefficientFor(int64_t renderTime, int64_t target) {
    const int64_t percent = target != 0 ? renderTime * 100 / target : 0;
    return static_cast<int32_t>(percent - 100);
}

// The floor of the coefficient is a property and taken as it comes. With one beyond all reason the
// coefficient stops at the ends of its type, so that no property can end the process.
inline int32_t saturated(int64_t coefficient) {
    using Limits = std::numeric_limits<int32_t>;
    return static_cast<int32_t>(std::clamp<int64_t>(coefficient, Limits::min(), Limits::max()));
}

// The coefficient moved by `delta`, not below `floor` and not above 0.
inline int32_t movedCoefficient(int32_t coe, int32_t delta, int32_t floor) {
    const int64_t sum = int64_t{coe} + delta;
    return sum < floor ? floor : saturated(std::min<int64_t>(sum, 0));
}

inline bool isCoeChangeWorthSending(int32_t from, int32_t to) {
    return std::abs(int64_t{to} - from) >= kMinCoeChange;
}

inline int32_t raisedThresh(int32_t thresh, int32_t ceiling) {
    return std::min(thresh + kThreshRaise, ceiling);
}

inline int32_t droppedThresh(int32_t thresh) {
    return std::max(thresh - kThreshDrop, kMinThresh);
}

// The coefficient that means the same against a new threshold. Not clamped again, as the
// next application does that.
inline int32_t rescaledCoefficient(int32_t coe, int32_t oldThresh, int32_t newThresh) {
    return saturated(int64_t{coe} * oldThresh / newThresh);
}

struct PingpongEvent {
    int64_t time;  // ns, monotonic
    bool byPerf;   // true: released by a missed frame; false: a coefficient was acquired
};

// The latest acquisitions and releases, oldest first. A ping-pong is a release by a missed frame,
// an acquisition and another such release, each within two vsync periods of the one before.
class StatusHistory {
  public:
    static constexpr size_t kCapacity = 3;

    // Adds an event and tells whether it completes a ping-pong.
    bool record(const PingpongEvent& event, int64_t vsyncPeriod) {
        if (mSize > 0 && event.time - mEvents[mSize - 1].time > 2 * vsyncPeriod) mSize = 0;
        if (mSize == kCapacity) {
            std::move(mEvents.begin() + 1, mEvents.end(), mEvents.begin());
            --mSize;
        }
        mEvents[mSize++] = event;
        return mSize == kCapacity && mEvents[0].byPerf && !mEvents[1].byPerf && mEvents[2].byPerf;
    }

  private:
    std::array<PingpongEvent, kCapacity> mEvents{};
    size_t mSize = 0;
};

}  // namespace android::cindral
