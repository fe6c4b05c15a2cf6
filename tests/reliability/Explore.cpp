// explore: plays generated programs of entry-point calls to the library under many schedules, in
// virtual time, and checks the invariants of Watch.h throughout.

#include <CLI/CLI.hpp>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "tests/reliability/Player.h"
#include "tests/reliability/SmallPrograms.h"
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
    size_t firstProgram = 0;  // of all small ones
    size_t programs = SIZE_MAX;
    int lateLoads = 1;
};

uint64_t seedOf(const Campaign& campaign, uint64_t run) {
    return campaign.seed * 1'000'003 + run / kSchedulesPerProgram;
}

// A schedule's number is its seed as well, so it is different in every program.
uint64_t numberOf(const Campaign& campaign, uint64_t run) {
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
        const Reached reached =
                play(program, scheduleOf(numberOf(campaign, run)), campaign.library);
        ++report.done;
        report.record += reached.record;  // a sum, for which it does not matter who was first
        for (int i = 0; i < Reached::kCount; ++i) report.counts[i] += reached.all()[i] ? 1 : 0;
    }
}

// What all workers did.
struct Sum {
    bool clean = true;
    Finding finding;
    uint64_t done = 0;
    uint64_t record = 0;
    uint64_t counts[std::size(Report{}.counts)] = {};
};

Sum doShares(uint64_t jobs, const std::function<void(uint64_t job, Report& report)>& share) {
    std::vector<std::unique_ptr<Worker>> workers;
    for (uint64_t job = 0; job < jobs; ++job) {
        workers.push_back(
                std::make_unique<Worker>([&, job](Report& report) { share(job, report); }));
    }
    Sum sum;
    for (const auto& worker : workers) {
        sum.clean = worker->wait(sum.finding);
        sum.done += worker->report().done;
        sum.record += worker->report().record;
        for (size_t i = 0; i < std::size(sum.counts); ++i)
            sum.counts[i] += worker->report().counts[i];
        if (!sum.clean) break;
    }
    return sum;
}

void showFinding(const Sum& sum, const char* kind) {
    std::cout << "violated: " << sum.finding.invariant << ", in " << kind << ' ' << sum.finding.at
              << " (after " << sum.done << ")\n"
              << sum.finding.text << std::endl;
}

int explore(const Campaign& campaign) {
    const Sum sum = doShares(campaign.jobs, [&](uint64_t job, Report& report) {
        exploreShare(campaign, job, report);
    });
    std::cout << sum.done << " schedules of "
              << (sum.done + kSchedulesPerProgram - 1) / kSchedulesPerProgram
              << " programs, record " << std::hex << sum.record << std::dec << '\n';
    for (size_t i = 0; i < Reached::kCount; ++i)
        std::cout << "  " << Reached::names()[i] << " in " << sum.counts[i] << '\n';
    if (sum.clean) return EXIT_SUCCESS;
    showFinding(sum, "schedule");
    std::cout << "replay with\nexplore --program '"
              << toText(generate(seedOf(campaign, sum.finding.at))) << "' --schedule "
              << numberOf(campaign, sum.finding.at) << '\n';
    return EXIT_FAILURE;
}

// Every schedule of so many small programs. The protocols, which come first, are counted one by one.
int exploreAll(const Campaign& campaign) {
    const std::vector<SmallProgram> programs = smallPrograms();
    const size_t first = std::min(campaign.firstProgram, programs.size());
    const size_t end = first + std::min(campaign.programs, programs.size() - first);
    const Sum sum = doShares(campaign.jobs, [&](uint64_t job, Report& report) {
        for (size_t i = first + job; i < end; i += campaign.jobs) {
            sim::Choices choices;
            do {
                Worker::begins(report, i);
                play(programs[i].program, scheduleOf(programs[i], choices, campaign.lateLoads),
                     campaign.library);
                ++report.done;
                ++report.counts[std::min(i, kProtocols)];
            } while (choices.next());
        }
    });
    for (size_t i = first; i < std::min(end, kProtocols); ++i)
        std::cout << programs[i].name << ": " << sum.counts[i] << " schedules\n";
    const size_t others = end - std::min(end, std::max(first, kProtocols));
    std::cout << others << " of " << programs.size() - kProtocols
              << " programs of two threads with two calls each: " << sum.counts[kProtocols]
              << " schedules\n";
    if (sum.clean) return EXIT_SUCCESS;
    showFinding(sum, "program");
    std::cout << programs[sum.finding.at].name << '\n';
    return EXIT_FAILURE;
}

int playOne(const CallProgram& program, uint64_t schedule, const std::string& library) {
    Worker worker([&](Report& report) {
        Worker::begins(report, schedule);
        play(program, scheduleOf(schedule), library);
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
    bool all = false;
    app.add_flag("--all", all, "every schedule of small programs, up to a bound (SmallPrograms.h)");
    app.add_option("--first", campaign.firstProgram, "the small program to begin with")
            ->needs("--all");
    app.add_option("--programs", campaign.programs, "so many small programs")->needs("--all");
    app.add_option("--late-loads", campaign.lateLoads, "at most so many in a schedule")
            ->needs("--all");
    app.add_option("--jobs", campaign.jobs, "at the same time")->check(CLI::PositiveNumber);
    app.add_option("--library", campaign.library, "the library to play to");
    app.add_option("--program", program, "plays this one, as a failure printed it");
    app.add_option("--schedule", schedule, "under this schedule")->needs("--program");
    CLI11_PARSE(app, argc, argv);
    if (campaign.schedules == 0 && campaign.seconds == 0) campaign.schedules = 10'000;
    try {
        if (!program.empty()) return playOne(parse(program), schedule, campaign.library);
        return all ? exploreAll(campaign) : explore(campaign);
    } catch (const std::exception& error) {
        std::cerr << "explore: " << error.what() << '\n';
        return 2;
    }
}
