#pragma once

#include <cstdint>

// Power optimisation switches PL and core control off and checks that this costs no frames: it
// compares the frame rates of three periods before the switch with three after it. A loss is a
// ping-pong: the optimisation is withdrawn, and after too many of them no longer tried. The steps
// are a function of their arguments alone.

namespace android::cindral {

inline constexpr int32_t kSamplesPerPhase = 3;
inline constexpr float kPingpongDropFps = 0.5F;
inline constexpr int32_t kMaxPingpongs = 3;
inline constexpr int32_t kMissesBeforeWithdrawal = 3;
inline constexpr int32_t kAccumulationForPowerOpt = 30;

struct PowerOptState {
    bool on = false;
    int32_t pingpongCount = 0;
    int32_t preconditionMissCount = 0;
    int32_t onSamples = 0;
    int32_t offSamples = 0;
    float onFpsSum = 0;
    float offFpsSum = 0;

    void forgetSamples() {
        onSamples = offSamples = 0;
        onFpsSum = offFpsSum = 0;
    }
};

enum class PowerOptSwitch { kKeep, kEnable, kWithdraw };

struct PowerOptStep {
    PowerOptState next;
    PowerOptSwitch change = PowerOptSwitch::kKeep;
    const char* log = nullptr;  // written before the change
};

// The layer can afford power optimisation: it keeps its rate within a frame, or runs ahead of the
// display.
inline bool meetsPowerOptPrecondition(int32_t accumulatedCount, float fps, int32_t fpsMode,
                                      bool regulatorActive) {
    return accumulatedCount > kAccumulationForPowerOpt || fps > static_cast<float>(fpsMode - 1) ||
           regulatorActive;
}

// While the optimisation is on: finishes a verification that has its three off samples.
inline PowerOptStep verifyPowerOpt(PowerOptState state, float fps) {
    if (state.offSamples != kSamplesPerPhase) return {state};
    if (state.onSamples < kSamplesPerPhase) {
        ++state.onSamples;
        state.onFpsSum += fps;
    }
    if (state.onSamples != kSamplesPerPhase) return {state};

    const float drop = (state.offFpsSum - state.onFpsSum) / static_cast<float>(kSamplesPerPhase);
    state.forgetSamples();
    if (drop > kPingpongDropFps) {
        ++state.pingpongCount;
        return {state, PowerOptSwitch::kWithdraw, "pingpong occurs!"};
    }
    state.pingpongCount = 0;
    return {state, PowerOptSwitch::kKeep, "no pingpong for poweropt."};
}

// While the optimisation is off: collects the three samples that a later verification compares
// with.
inline PowerOptStep collectBeforePowerOpt(PowerOptState state, float fps) {
    if (state.offSamples < kSamplesPerPhase) {
        ++state.offSamples;
        state.offFpsSum += fps;
    }
    if (state.offSamples != kSamplesPerPhase) return {state};
    if (state.pingpongCount > kMaxPingpongs) {
        return {state, PowerOptSwitch::kKeep, "already reach pingpong threshold."};
    }
    return {state, PowerOptSwitch::kEnable, "enable power opt."};
}

inline PowerOptStep missPowerOptPrecondition(PowerOptState state, float fps) {
    ++state.preconditionMissCount;
    if (!state.on) {
        // The samples before the switch have to be consecutive.
        state.offSamples = 0;
        state.offFpsSum = 0;
        return {state};
    }
    if (state.preconditionMissCount >= kMissesBeforeWithdrawal && state.offSamples == 0) {
        return {state, PowerOptSwitch::kWithdraw, "disable power opt as not meet pre-condition."};
    }
    // A verification in progress is finished even through misses.
    return verifyPowerOpt(state, fps);
}

// One evaluation, for each closed measuring period at the display's rate.
inline PowerOptStep stepPowerOpt(PowerOptState state, bool precondition, float fps) {
    if (!precondition) return missPowerOptPrecondition(state, fps);
    if (state.preconditionMissCount >= 1) {
        state.preconditionMissCount = 0;
        return {state, PowerOptSwitch::kKeep, "eliminate the data of switch"};
    }
    return state.on ? verifyPowerOpt(state, fps) : collectBeforePowerOpt(state, fps);
}

}  // namespace android::cindral
