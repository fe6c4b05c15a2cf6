#pragma once

#include <pthread.h>

#include <cstdint>
#include <functional>

#include "sim/Simulation.h"

namespace simtest {

using Program = std::function<void()>;

// How many seeds a search may take: many times what the programs here need.
constexpr uint64_t kSeedsToTry = 300;

inline sim::Options firstCome() {
    sim::Options options;
    options.abortOnFailure = false;
    return options;
}

inline sim::Options random(uint64_t seed) {
    sim::Options options = firstCome();
    options.schedule = sim::Schedule::kRandom;
    options.seed = seed;
    return options;
}

// The first failing seed; kSeedsToTry if there is none.
inline uint64_t findFailure(const Program& program, sim::Outcome& outcome) {
    for (uint64_t seed = 0; seed < kSeedsToTry; ++seed) {
        outcome = sim::run(random(seed), program);
        if (!outcome.ok()) return seed;
    }
    return kSeedsToTry;
}

inline void nameThisThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
}

}  // namespace simtest
