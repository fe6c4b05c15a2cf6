#include "replay/program/FleetTasks.h"

#include <iostream>

#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/fleet/FleetPage.h"
#include "replay/fleet/Gather.h"
#include "replay/fleet/Sweep.h"
#include "replay/fleet/Tune.h"

namespace replay {

ExitStatus sweepCaptures(const CommandLine& line) {
    Sweep sweep;
    const std::vector<FleetCapture> all = listCaptures(line.captures);
    for (size_t i = line.fleet.shard - 1; i < all.size(); i += line.fleet.shards) {
        sweep.captures.push_back(all[i]);
    }
    sweep.setups.push_back(line.setup);
    for (const std::string& comparison : line.comparisons) {
        sweep.setups.push_back(changedSetup(line.setup, comparison));
    }
    sweep.input = line.input;
    sweep.library = buildOf(line.setup.library);
    sweep.folder = line.fleet.rows;
    sweep.jobs = line.jobsAtATime();
    sweep.title = "sweep";
    const SweepResult result = makeRows(sweep);
    std::cout << format("%zu rows made, %zu of them of failed runs; %zu were there\n", result.made,
                        result.failed, result.present);
    return result.lost == 0 ? kDone : kReplayFailed;
}

ExitStatus gatherTable(const CommandLine& line) {
    const FleetOptions& fleet = line.fleet;
    GatherResult result;
    replaceFile(fleet.table, [&](const std::string& part) {
        result = gatherRows(line.captures, Table(part, Table::Use::kNew));
    });
    const Table table(fleet.table, Table::Use::kRead);
    if (!fleet.csv.empty()) writeCsv(table, fleet.csv);
    if (!line.report.empty()) {
        FleetPage page;
        page.base = fleet.base;
        writeFleetPage(line.report, table, page);
    }
    std::cout << format("%zu rows of %zu captures, %zu of them of failed runs\n", result.rows,
                        result.captures, result.failed);
    return result.unreadable == 0 ? kDone : kBadInput;
}

ExitStatus tuneSetting(const CommandLine& line) {
    TuneOptions options = line.fleet.tune;
    options.captures = listCaptures(line.captures);
    options.base = line.setup;
    options.input = line.input;
    options.rows = line.fleet.rows;
    options.jobs = line.jobsAtATime();
    const Tuned tuned = tune(options);
    writeTuned(std::cout, tuned);
    if (!line.fleet.properties.empty()) {
        writeFile(line.fleet.properties, [&](std::ostream& out) { out << propertiesText(tuned); });
    }
    if (!line.report.empty()) writeTunedPage(line.report, options.rows, tuned);
    return tuned.left == 0 ? kDone : kBadInput;
}

}  // namespace replay
