// Prints what the rules that compute with fractions decide, over the whole range of their arguments and
// to the last digit, so that two processors can be compared.

#include <cstdint>
#include <cstdio>

#include "headroom/HeadroomRules.h"
#include "tracker/FrameRules.h"

using namespace android::cindral;

namespace {

constexpr int64_t kShortestPeriodNs = 6'800'001;
constexpr int64_t kLongestPeriodNs = 17'999'999;
constexpr int64_t kPeriodStepNs = 31'337;
constexpr float kMinRateStep = 0.013F;

void printBounds(int64_t period) {
    const int32_t rate = displayClassOf(period);
    for (float minRate = 0; minRate < 1.5F; minRate += kMinRateStep) {
        const HeadroomBounds bounds = headroomBounds(period, rate, minRate);
        std::printf("bounds %lld %d %a: %lld %lld\n", static_cast<long long>(period), rate,
                    static_cast<double>(minRate), static_cast<long long>(bounds.min),
                    static_cast<long long>(bounds.max));
    }
}

// A measuring period of `frames` frames, summed up as the tracker does.
void printFrameRate(int64_t interval, int32_t frames) {
    float sum = 0;
    for (int32_t i = 0; i < frames; ++i) sum += static_cast<float>(interval + i * 997 % 4001);
    const float fps = frameRateOf(sum, frames);
    std::printf("rate %lld %d: %a %d\n", static_cast<long long>(interval), frames,
                static_cast<double>(fps), frameRateClassOf(fps));
}

void printStutters(int64_t period) {
    for (int64_t gap = period; gap < 3 * period; gap += period / 64 + 1) {
        std::printf("stutter %lld %lld: %d\n", static_cast<long long>(period),
                    static_cast<long long>(gap), isStutter(gap, period) ? 1 : 0);
    }
}

}  // namespace

int main() {
    for (int64_t period = kShortestPeriodNs; period <= kLongestPeriodNs; period += kPeriodStepNs) {
        printBounds(period);
        printStutters(period);
        for (int32_t frames : {1, 30, 61, 145}) printFrameRate(period, frames);
    }
}
