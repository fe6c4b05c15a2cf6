#include "replay/findings/Effects.h"

#include <algorithm>
#include <cstdlib>

namespace replay {

namespace {

constexpr int kHintBoost = 0x1046;
constexpr int kNegativeBit = 0x10000;
constexpr int kStrengthMask = 0xffff;
constexpr int64_t kNsPerMs = 1'000'000;

constexpr int kOpcodePl = 0x41444000;
constexpr int kOpcodeCoreControl = 0x41000000;

constexpr int kLogError = 6;
constexpr char kModuleTag[] = "Cindral";
constexpr char kDecisionStart[] = "[GFAR:";
// The first property that is read for a layer rather than for the whole library.
constexpr char kEnvironmentProperty[] = "vendor.perf.pfar2.boost_level";

// Types of the positive boosts; those of the first checkpoint differ with the display's rate.
std::optional<size_t> checkpointOf(int type) {
    switch (type) {
        case 1300:
        case 1500:
            return 0;
        case 2000:
            return 1;
        case 10000:
            return 2;
        default:
            return std::nullopt;
    }
}

class Sorter {
  public:
    Effects sort(const Run& run) {
        for (const standin::Event& event : run.seen) {
            if (event.kind == standin::EventKind::kServiceCall) {
                serviceCall(event);
            } else if (event.kind == standin::EventKind::kLog) {
                log(event);
            } else {
                mEffects.debugSeen = true;
            }
        }
        for (OnTimes* times :
             {&mEffects.frameRegulator, &mEffects.headroomRegulator, &mEffects.boosted,
              &mEffects.lowered, &mEffects.pl.held, &mEffects.coreControl.held}) {
            times->finish(run.endNs);
        }
        return std::move(mEffects);
    }

  private:
    void serviceCall(const standin::Event& event) {
        switch (event.entryPoint) {
            case standin::EntryPoint::kPerfHint:
                return hint(event);
            case standin::EntryPoint::kPerfLockAcq:
                return lockAcquired(event);
            case standin::EntryPoint::kPerfLockRel:
                return lockReleased(event);
            case standin::EntryPoint::kPerfGetProp:
                if (event.text == kEnvironmentProperty && !mEffects.environmentNs) {
                    mEffects.environmentNs = event.timeNs;
                }
                return;
            default:
                return;
        }
    }

    void hint(const standin::Event& event) {
        const std::vector<int>& arguments = event.arguments;
        if (arguments.size() != 3 || arguments[0] != kHintBoost) {
            ++mEffects.unknownHints;
            return;
        }
        const int64_t durationNs = arguments[1] * kNsPerMs;
        if ((arguments[2] & kNegativeBit) != 0) {
            negativeBoost(event.timeNs, durationNs, arguments[2] & kStrengthMask);
        } else {
            boost(event.timeNs, durationNs, arguments[2]);
        }
    }

    void boost(int64_t timeNs, int64_t durationNs, int type) {
        if (durationNs == 0 && type == 0) {
            ++mEffects.releases;
            mEffects.boosted.off(timeNs);
        } else if (const std::optional<size_t> checkpoint = checkpointOf(type)) {
            ++mEffects.boosts[*checkpoint];
            mEffects.boosted.onFor(timeNs, durationNs);
        } else {
            ++mEffects.unknownHints;
        }
    }

    void negativeBoost(int64_t timeNs, int64_t durationNs, int strength) {
        if (durationNs == 0) {
            ++mEffects.negativeReleases;
            mEffects.lowered.off(timeNs);
        } else {
            mEffects.negativeBoosts.push_back(strength);
            mEffects.lowered.onFor(timeNs, durationNs);
        }
    }

    void lockAcquired(const standin::Event& event) {
        const std::vector<int>& arguments = event.arguments;
        const auto holds = [&](int opcode) {
            return std::find(arguments.begin(), arguments.end(), opcode) != arguments.end();
        };
        Effects::Lock* lock = holds(kOpcodePl)            ? &mEffects.pl
                              : holds(kOpcodeCoreControl) ? &mEffects.coreControl
                                                          : nullptr;
        if (lock == nullptr) return;
        ++lock->acquired;
        lock->held.on(event.timeNs);
        mLocks[std::atoi(event.result.c_str())] = lock;
    }

    void lockReleased(const standin::Event& event) {
        const auto found = event.arguments.empty() ? mLocks.end() : mLocks.find(event.arguments[0]);
        if (found == mLocks.end()) return;
        ++found->second->released;
        found->second->held.off(event.timeNs);
    }

    void log(const standin::Event& event) {
        if (event.priority < kLogError) mEffects.debugSeen = true;
        if (event.tag == kModuleTag && event.text.rfind(kDecisionStart, 0) == 0) {
            mEffects.decision = event.text;
        } else if (event.priority >= kLogError) {
            mEffects.errors.push_back(event.tag + ": " + event.text);
        } else if (event.text == "enable PHR") {
            mEffects.headroomRegulator.on(event.timeNs);
        } else if (event.text == "disable PHR") {
            mEffects.headroomRegulator.off(event.timeNs);
        } else if (event.text == "enable FrameRegulator") {
            mEffects.frameRegulator.on(event.timeNs);
        } else if (event.text == "disable FrameRegulator") {
            mEffects.frameRegulator.off(event.timeNs);
        }
    }

    Effects mEffects;
    std::map<int, Effects::Lock*> mLocks;  // by handle
};

}  // namespace

Effects effectsOf(const Run& run) {
    return Sorter().sort(run);
}

}  // namespace replay
