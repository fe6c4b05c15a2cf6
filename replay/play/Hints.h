#pragma once

// What the library's calls of the performance service mean. Pure functions.

#include <cstdint>

#include "device/StandInDevice.h"

namespace replay {

struct Hint {
    enum class Kind { kNone, kUnknown, kBoost, kRelease, kNegativeBoost, kNegativeRelease };

    Kind kind = Kind::kNone;  // kNone: not a hint at all
    int checkpoint = 0;       // kBoost
    int type = 0;             // kBoost, as sent
    int strength = 0;         // kNegativeBoost, in percent
    int durationMs = 0;

    bool isNegative() const {
        return kind == Kind::kNegativeBoost || kind == Kind::kNegativeRelease;
    }
    int64_t durationNs() const { return int64_t{durationMs} * 1'000'000; }
};

Hint hintOf(const device::Event& event);

// Features of the service that can be held off.
enum class Feature { kUnknown, kPl, kCoreControl };

// Of a lock that is acquired.
Feature lockedFeature(const device::Event& event);

}  // namespace replay
