#pragma once

#include <string>
#include <vector>

#include "tests/reliability/CallProgram.h"

namespace reliability {

// The device as a program wants it.
void configure(const CallProgram& program);
// What it answers from now on.
void setMood(int mood);
// Opens the services without these libraries and entry points.
void openServices(const std::vector<std::string>& without);
void useSmallStacks();

}  // namespace reliability
