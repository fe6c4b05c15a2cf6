#pragma once

// Work in several processes, because one process can hold only one run at a time.

#include <functional>
#include <string>
#include <vector>

namespace replay {

using Job = std::function<std::string()>;

struct JobResult {
    std::string output;  // what the job returned; empty if it failed
    std::string error;   // why it failed; empty if it did not
    bool badInput = false;
    bool outputFailed = false;  // something could not be written
    int signal = 0;             // that ended its process; 0: none did
};

// Runs each in a process of its own, at most `limit` at a time, and returns their results in their
// own order. Call it while the process has only one thread.
std::vector<JobResult> runJobs(const std::vector<Job>& jobs, unsigned limit);

// The same for any number of jobs without keeping them: `next` makes them one by one until it gives
// an empty one, and `done` gets the number and the result of each that has ended.
void runJobs(const std::function<Job()>& next,
             const std::function<void(size_t job, const JobResult& result)>& done, unsigned limit);

// As many as there are processors for this process.
unsigned usableProcessors();

}  // namespace replay
