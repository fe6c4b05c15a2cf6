#pragma once

// Inputs under setups, each run in a process of its own: whoever plays more than one thing, or must
// survive a run that fails, says here what, and what is to be kept of each run.
//
//   const auto rows = playAll(everyCombination(inputs, setups), usableProcessors(),
//                             [](const PlannedRun&, const Played& played) {
//                                 return rowOf(played.findings);
//                             });

#include <functional>
#include <string>
#include <vector>

#include "replay/plan/Input.h"
#include "replay/plan/Jobs.h"
#include "replay/plan/PlayInput.h"
#include "replay/plan/Setup.h"

namespace replay {

struct PlannedRun {
    InputChoice input;
    Setup setup;
};

// Every input under every setup, input by input.
std::vector<PlannedRun> everyCombination(const std::vector<InputChoice>& inputs,
                                         const std::vector<Setup>& setups);

// What the parent gets of a run: any bytes. Called in the run's own process.
using Harvest = std::function<std::string(const PlannedRun& run, const Played& played)>;

// Opens and plays each in a process of its own, at most `limit` at a time, and returns what
// `harvest` made of it, in the order of the plan. What a run throws is in its JobResult. Inputs are
// read by the runs themselves, so that no more is in memory than what is being played; only if all
// runs are of one input it is read once, before they start. Call it while the process has only one
// thread. Throws InputError if that one input cannot be read, ReplayError if no process can be had.
std::vector<JobResult> playAll(const std::vector<PlannedRun>& plan, unsigned limit,
                               const Harvest& harvest);

}  // namespace replay
