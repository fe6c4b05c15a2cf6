#pragma once

#include <chrono>
#include <cstdint>

namespace bench {

// CLOCK_MONOTONIC, ns.
inline int64_t nowNs() {
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace bench
