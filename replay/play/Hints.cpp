#include "replay/play/Hints.h"

#include <algorithm>

namespace replay {

namespace {

constexpr int kHintBoost = 0x1046;
constexpr int kNegativeBit = 0x10000;
constexpr int kStrengthMask = 0xffff;
constexpr size_t kHintArguments = 3;

constexpr int kOpcodePl = 0x41444000;
constexpr int kOpcodeCoreControl = 0x41000000;

// Types of the boosts. The first checkpoint has a second one for fast layers, which captures of other builds
// may hold.
int checkpointOf(int type) {
    switch (type) {
        case 1300:
        case 1500:
            return 1;
        case 2000:
            return 2;
        case 10000:
            return 3;
        default:
            return 0;
    }
}

Hint positiveHint(int durationMs, int type) {
    Hint hint;
    hint.durationMs = durationMs;
    hint.type = type;
    hint.checkpoint = checkpointOf(type);
    hint.kind = hint.checkpoint > 0            ? Hint::Kind::kBoost
                : durationMs == 0 && type == 0 ? Hint::Kind::kRelease
                                               : Hint::Kind::kUnknown;
    return hint;
}

Hint negativeHint(int durationMs, int type) {
    Hint hint;
    hint.durationMs = durationMs;
    hint.type = type;
    hint.strength = type & kStrengthMask;
    hint.kind = durationMs == 0 ? Hint::Kind::kNegativeRelease : Hint::Kind::kNegativeBoost;
    return hint;
}

}  // namespace

Hint hintOf(const device::Event& event) {
    if (event.kind != device::EventKind::kServiceCall ||
        event.entryPoint != device::EntryPoint::kPerfHint) {
        return {};
    }
    const std::vector<int>& arguments = event.arguments;
    Hint unknown;
    unknown.kind = Hint::Kind::kUnknown;
    if (arguments.size() != kHintArguments || arguments[0] != kHintBoost) return unknown;
    return (arguments[2] & kNegativeBit) != 0 ? negativeHint(arguments[1], arguments[2])
                                              : positiveHint(arguments[1], arguments[2]);
}

Feature lockedFeature(const device::Event& event) {
    const std::vector<int>& arguments = event.arguments;
    const auto holds = [&](int opcode) {
        return std::find(arguments.begin(), arguments.end(), opcode) != arguments.end();
    };
    if (holds(kOpcodePl)) return Feature::kPl;
    return holds(kOpcodeCoreControl) ? Feature::kCoreControl : Feature::kUnknown;
}

}  // namespace replay
