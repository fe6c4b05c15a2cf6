#pragma once

// What a boost or a negative boost does to the game's work in the modelled loop. Nobody knows for a
// device that is not there, so it is the user's to say; by default nothing.

#include <cstdint>
#include <mutex>

#include "device/StandInDevice.h"

namespace replay {

struct HintEffects {
    int boostSpeedupPercent = 0;      // work goes so much faster while a boost is in force
    int negativeSlowdownPercent = 0;  // work takes so much of the hint's strength longer

    bool any() const { return boostSpeedupPercent != 0 || negativeSlowdownPercent != 0; }
};

// Adds up how much work the processor could do. Any thread; times are ns on one clock and never go
// back. Work is in ns at normal speed, times kNormalSpeed.
class Clocks {
  public:
    static constexpr int64_t kNormalSpeed = 1000;

    explicit Clocks(const HintEffects& effects) : mEffects(effects) {}

    void onCall(const device::Event& event);
    // Done from the beginning to `timeNs`, by a processor that is never idle.
    int64_t doneAt(int64_t timeNs);
    // No speed is ever higher.
    int64_t fastest() const;

  private:
    struct Effect {
        int amount = 0;
        int64_t untilNs = 0;

        bool holdsAt(int64_t timeNs) const { return amount != 0 && timeNs < untilNs; }
    };

    int64_t speedAt(int64_t timeNs) const;
    void advanceTo(int64_t timeNs);

    const HintEffects mEffects;
    std::mutex mLock;  // guards all below; innermost
    Effect mBoost;     // amount 1 while there is one
    Effect mNegative;  // amount is its strength
    int64_t mNowNs = 0;
    int64_t mDone = 0;
};

}  // namespace replay
