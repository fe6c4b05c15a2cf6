#pragma once

// Included before everything else where the library is compiled for the thread sanitizer. The
// platform's reference count takes the last reference back with a release and a fence; fences are
// not seen by the sanitizer, and each last reference would count as a race. Here, and here alone,
// the count acquires by itself.

#include <atomic>

namespace std {
inline constexpr memory_order memory_order_seen = memory_order_acq_rel;
}
#define memory_order_release memory_order_seen
#include <utils/LightRefBase.h>
#undef memory_order_release
