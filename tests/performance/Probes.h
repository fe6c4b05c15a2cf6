#pragma once

// What a measured call must not do, seen from inside the process.

#include <string>
#include <vector>

namespace probes {

// Allocations of the library, on whichever thread, since the last call; each as the function that
// asked for the memory. What the stand-in device allocates for its records, and what the test does,
// does not count.
void watchAllocations();
std::vector<std::string> allocations();  // and stops watching

// Numbers of the system calls that `call` makes on the calling thread, at most one. Needs
// canWatchSystemCalls().
bool canWatchSystemCalls();
template <typename Call>
std::vector<int> systemCalls(Call call);

void armSystemCalls();
std::vector<int> disarmSystemCalls();

template <typename Call>
std::vector<int> systemCalls(Call call) {
    armSystemCalls();
    call();
    return disarmSystemCalls();
}

}  // namespace probes
