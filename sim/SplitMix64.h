#pragma once

#include <cstdint>

namespace sim {

// The next of a sequence of 64 random bits, and the state for the one after it. A Weyl sequence, mixed
// by two multiplications: neighbouring seeds give unrelated sequences.
inline uint64_t splitMix64(uint64_t& state) {
    state += 0x9e3779b97f4a7c15u;
    uint64_t bits = state;
    bits = (bits ^ (bits >> 30)) * 0xbf58476d1ce4e5b9u;
    bits = (bits ^ (bits >> 27)) * 0x94d049bb133111ebu;
    return bits ^ (bits >> 31);
}

}  // namespace sim
