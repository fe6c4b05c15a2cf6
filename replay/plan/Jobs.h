#pragma once

// Work in several processes, because one process can hold only one run at a time.

#include <functional>
#include <string>
#include <vector>

namespace replay {

struct JobResult {
    std::string output;  // what the job returned; empty if it failed
    std::string error;   // why it failed; empty if it did not
    bool badInput = false;
};

// Runs each in a process of its own, at most `limit` at a time, and returns their results in their
// own order. Call it while the process has only one thread.
std::vector<JobResult> runJobs(const std::vector<std::function<std::string()>>& jobs,
                               unsigned limit);

// As many as there are processors for this process.
unsigned usableProcessors();

}  // namespace replay
