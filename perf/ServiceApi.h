#pragma once

#include "perf/PropertyValue.h"

namespace android::cindral {

// The device's two closed client libraries and the signatures of their entry points, which carry
// plain C names. What the numbers passed to them mean is the service's business.

inline constexpr char kFeatureLibrary[] = "libskewknob_system.so";
inline constexpr char kClientLibrary[] = "libnuv-perfd-client_system.so";

using IsFeatureEnabledFn = int (*)(int featureId);
using PerfGetPropFn = PropertyValue (*)(const char* property, const char* defaultValue);
using PerfGetFeedbackFn = int (*)(int request, const char* package);
using PerfGetFeedbackExtnFn = int (*)(int request, const char* package, int count, int* values);
using PerfHintFn = int (*)(int hintId, const char* package, int duration, int type);
using PerfLockAcqFn = int (*)(int handle, int duration, int* list, int count);
using PerfLockRelFn = int (*)(int handle);
using GetPerfHalVerFn = double (*)();

// Carries the positive boosts of the boost engine and, told apart by kNegativeBoostFlag in the
// type, the negative boosts of the power controller.
inline constexpr int kBoostHintId = 0x1046;
inline constexpr int kNegativeBoostFlag = 0x10000;

// Asks about a package: whether it is a game, and its weight.
inline constexpr int kGameRequestId = 0x1601;
inline constexpr int kGameVerdict = 2;

// Services up to this version answer the weight through perf_hint and lack perf_get_feedback_extn.
inline constexpr double kLastHalVersionWithoutExtn = 2.2;

// What the wrappers answer in place of a missing entry point.
inline constexpr int kUnavailable = -1;
inline constexpr double kHalVersionUnavailable = -1.0;
inline constexpr int kFeatureOff = 0;

}  // namespace android::cindral
