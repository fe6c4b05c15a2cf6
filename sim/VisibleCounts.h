#pragma once

// Included before everything else where the library is compiled for the thread sanitizer, or for a
// search of schedules. The platform's reference count takes the last reference back with a release
// and a fence, which neither sees, and each last reference would count as a race. Here, and here
// alone, the sanitizer sees a count that acquires by itself, and the simulation is told.

#include <atomic>

#ifdef CINDRAL_EXPLORE
#include "sim/SharedCell.h"

namespace std {
inline memory_order simReleasing(const void* object) {
    simReleaseCount(object);
    return memory_order_acq_rel;
}
inline memory_order simAcquiring(const void* object) {
    simAcquireCount(object);
    return memory_order_acquire;
}
}  // namespace std
#define memory_order_release simReleasing(this)
#define memory_order_acquire simAcquiring(this)
#include <utils/LightRefBase.h>
#undef memory_order_acquire
#else
namespace std {
inline constexpr memory_order memory_order_seen = memory_order_acq_rel;
}
#define memory_order_release memory_order_seen
#include <utils/LightRefBase.h>
#endif
#undef memory_order_release
