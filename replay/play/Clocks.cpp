#include "replay/play/Clocks.h"

#include <algorithm>

#include "replay/play/Hints.h"

namespace replay {

namespace {
constexpr int64_t kHundred = 100;
// The library sends what its properties say, which may be no strength at all.
constexpr int kMaxStrengthPercent = 100;
}  // namespace

void Clocks::onCall(const device::Event& event) {
    const Hint hint = hintOf(event);
    if (hint.kind == Hint::Kind::kNone || hint.kind == Hint::Kind::kUnknown) return;
    const std::lock_guard<std::mutex> guard(mLock);
    advanceTo(event.timeNs);
    Effect& effect = hint.isNegative() ? mNegative : mBoost;
    effect.untilNs = event.timeNs + hint.durationNs();
    effect.amount = hint.isNegative() ? std::min(hint.strength, kMaxStrengthPercent) : 1;
}

int64_t Clocks::doneAt(int64_t timeNs) {
    const std::lock_guard<std::mutex> guard(mLock);
    advanceTo(timeNs);
    return mDone;
}

int64_t Clocks::fastest() const {
    return kNormalSpeed * (kHundred + mEffects.boostSpeedupPercent) / kHundred;
}

int64_t Clocks::speedAt(int64_t timeNs) const {
    int64_t speed = kNormalSpeed;
    if (mBoost.holdsAt(timeNs)) speed = fastest();
    if (mNegative.holdsAt(timeNs)) {
        const int64_t longer = int64_t{mEffects.negativeSlowdownPercent} * mNegative.amount;
        speed = speed * kHundred * kHundred / (kHundred * kHundred + longer);
    }
    return std::max<int64_t>(speed, 1);
}

// In pieces, as an effect may have run out on the way.
void Clocks::advanceTo(int64_t timeNs) {
    while (mNowNs < timeNs) {
        int64_t until = timeNs;
        for (const Effect& effect : {mBoost, mNegative}) {
            if (effect.holdsAt(mNowNs)) until = std::min(until, effect.untilNs);
        }
        mDone += (until - mNowNs) * speedAt(mNowNs);
        mNowNs = until;
    }
}

}  // namespace replay
