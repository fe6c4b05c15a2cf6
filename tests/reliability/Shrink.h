#pragma once

#include <string>

#include "tests/reliability/Program.h"
#include "tests/reliability/Workers.h"

namespace reliability {

struct Case {
    Program program;
    uint64_t schedule = 0;
};

// Plays the case in a process of its own, and then the schedules that follow its own; so many.
bool fails(const Case& first, uint64_t schedules, const std::string& library, Finding& finding);

// A smaller case, with a schedule of its own, that violates the same invariant.
Case shrink(const Case& first, const std::string& invariant, const std::string& library);

}  // namespace reliability
