#pragma once

// Games by rule, for the modelled loop when no capture is at hand.

#include <cstdint>
#include <string>
#include <vector>

namespace replay {

struct Workload {
    const char* name;
    const char* description;  // half a line
};

// What is played when nothing is named.
constexpr char kDefaultWorkload[] = "session";

const std::vector<Workload>& workloads();

// The work of `frames` frames of the named one, in ns; the same on every machine. Throws
// InputError for a name there is not.
std::vector<int64_t> workloadNs(const std::string& name, int64_t periodNs, int frames);

}  // namespace replay
