// explore: plays generated programs of entry-point calls to the library under many schedules, in
// virtual time, and checks the invariants of Watch.h throughout.

#include <CLI/CLI.hpp>
#include <time.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "tests/reliability/Player.h"
#include "tests/reliability/Workers.h"

using namespace reliability;

namespace {

constexpr uint64_t kSchedulesPerProgram = 12;

struct Campaign {
    uint64_t schedules = 0;  // 0: as many as the time allows
    int64_t seconds = 0;     // 0: as long as the schedules take
    uint64_t seed = 1;
    uint64_t jobs = 1;
    std::string library = "libcindral.so";
};

uint64_t seedOf(const Campaign& campaign, uint64_t run) {
    return campaign.seed * 1'000'003 + run / kSchedulesPerProgram;
}

// A schedule's number is its seed as well, so it is different in every program.
uint64_t scheduleOf(const Campaign& campaign, uint64_t run) {
    return campaign.seed * 1'000'000'007 + run;
}

// Every `jobs`th program, from the `job`th on.
void exploreShare(const Campaign& campaign, uint64_t job, Report& report) {
    const time_t start = time(nullptr);
    CallProgram program;
    for (uint64_t run = 0; campaign.schedules == 0 || run < campaign.schedules; ++run) {
        if (run / kSchedulesPerProgram % campaign.jobs != job) continue;
        if (run % kSchedulesPerProgram == 0) {
            if (campaign.seconds != 0 && time(nullptr) - start >= campaign.seconds) return;
            program = generate(seedOf(campaign, run));
        }
        Worker::begins(report, run);
        const Reached reached = play(program, scheduleOf(campaign, run), campaign.library);
        ++report.done;
        report.record += reached.record;  // a sum, for which it does not matter who was first
        for (int i = 0; i < Reached::kCount; ++i) report.counts[i] += reached.all()[i] ? 1 : 0;
    }
}

void showProgress(uint64_t done, uint64_t record, const uint64_t (&counts)[Reached::kCount]) {
    std::cout << done << " schedules of "
              << (done + kSchedulesPerProgram - 1) / kSchedulesPerProgram << " programs, record "
              << std::hex << record << std::dec << '\n';
    for (size_t i = 0; i < Reached::kCount; ++i)
        std::cout << "  " << Reached::names()[i] << " in " << counts[i] << '\n';
}

void showFinding(const Campaign& campaign, const Finding& finding, uint64_t done) {
    std::cout << "violated: " << finding.invariant << ", in schedule " << finding.at << " (after "
              << done << ")\n"
              << finding.text << std::endl;
    std::cout << "replay with\nexplore --program '"
              << toText(generate(seedOf(campaign, finding.at))) << "' --schedule "
              << scheduleOf(campaign, finding.at) << '\n';
}

int explore(const Campaign& campaign) {
    std::vector<std::unique_ptr<Worker>> workers;
    for (uint64_t job = 0; job < campaign.jobs; ++job) {
        workers.push_back(std::make_unique<Worker>(
                [&, job](Report& report) { exploreShare(campaign, job, report); }));
    }
    Finding finding;
    bool clean = true;
    uint64_t done = 0;
    uint64_t record = 0;
    uint64_t counts[Reached::kCount] = {};
    for (const auto& worker : workers) {
        clean = worker->wait(finding) && clean;
        done += worker->report().done;
        record += worker->report().record;
        for (int i = 0; i < Reached::kCount; ++i) counts[i] += worker->report().counts[i];
        if (!clean) break;
    }
    workers.clear();
    showProgress(done, record, counts);
    if (clean) return EXIT_SUCCESS;
    showFinding(campaign, finding, done);
    return EXIT_FAILURE;
}

int playOne(const CallProgram& program, uint64_t schedule, const std::string& library) {
    Worker worker([&](Report& report) {
        Worker::begins(report, schedule);
        play(program, schedule, library);
    });
    Finding finding;
    if (worker.wait(finding)) {
        std::cout << "all invariants held\n";
        return EXIT_SUCCESS;
    }
    std::cout << "violated: " << finding.invariant << '\n' << finding.text << '\n';
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    Campaign campaign;
    std::string program;
    uint64_t schedule = 0;
    CLI::App app("plays generated programs of calls to the library under many schedules");
    app.add_option("--schedules", campaign.schedules, "so many, 10000 if there is no --seconds");
    app.add_option("--seconds", campaign.seconds, "so long")->check(CLI::NonNegativeNumber);
    app.add_option("--seed", campaign.seed, "of programs and schedules");
    app.add_option("--jobs", campaign.jobs, "at the same time")->check(CLI::PositiveNumber);
    app.add_option("--library", campaign.library, "the library to play to");
    app.add_option("--program", program, "plays this one, as a failure printed it");
    app.add_option("--schedule", schedule, "under this schedule")->needs("--program");
    CLI11_PARSE(app, argc, argv);
    if (campaign.schedules == 0 && campaign.seconds == 0) campaign.schedules = 10'000;
    try {
        if (!program.empty()) return playOne(parse(program), schedule, campaign.library);
        return explore(campaign);
    } catch (const std::exception& error) {
        std::cerr << "explore: " << error.what() << '\n';
        return 2;
    }
}
