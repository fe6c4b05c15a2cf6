#pragma once

#include <string>

#include "sim/Engine.h"

namespace sim {

// The texts of failure reports. They contain numbers in order of first use but no addresses, so
// that the same seed gives the same text.

std::string nameOf(const Thread& thread);  // thread 2 "worker"

std::string describeFailure(const Engine& engine, Failure failure, const std::string& what,
                            uint64_t steps);

}  // namespace sim
