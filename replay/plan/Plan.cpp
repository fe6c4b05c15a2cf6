#include "replay/plan/Plan.h"

#include <algorithm>
#include <optional>

namespace replay {

namespace {

bool isOneInput(const std::vector<PlannedRun>& plan) {
    return std::all_of(plan.begin(), plan.end(),
                       [&](const PlannedRun& run) { return run.input == plan.front().input; });
}

}  // namespace

std::vector<PlannedRun> everyCombination(const std::vector<InputChoice>& inputs,
                                         const std::vector<Setup>& setups) {
    std::vector<PlannedRun> plan;
    for (const InputChoice& input : inputs) {
        for (const Setup& setup : setups) plan.push_back({input, setup});
    }
    return plan;
}

std::vector<JobResult> playAll(const std::vector<PlannedRun>& plan, unsigned limit,
                               const Harvest& harvest) {
    std::optional<Input> shared;
    if (!plan.empty() && isOneInput(plan)) shared = openInputVisibly(plan.front().input);
    std::vector<std::function<std::string()>> jobs;
    for (const PlannedRun& run : plan) {
        jobs.emplace_back([&] {
            return harvest(run, playInput(shared ? *shared : openInput(run.input), run.setup));
        });
    }
    return runJobs(jobs, limit);
}

}  // namespace replay
