#pragma once

// What this process holds of the kernel, to tell whether something was left behind.

#include <string>

namespace device {

int countThreads();
int countHandles();  // open files
int countMappings();
// Whether a file whose path contains `name` is mapped.
bool isMapped(const std::string& name);

}  // namespace device
