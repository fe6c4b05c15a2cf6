// explore: plays generated programs of entry-point calls to the library under many schedules, in
// virtual time, and checks the invariants of Watch.h throughout. See usage().

#include <time.h>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "tests/reliability/Arguments.h"
#include "tests/reliability/Player.h"
#include "tests/reliability/Shrink.h"
#include "tests/reliability/Workers.h"

using namespace reliability;

namespace {

constexpr char kUsage[] =
        "usage: explore [--schedules N] [--seconds S] [--seed S] [--jobs N] [--library PATH]\n"
        "               [--shrink 0]  to leave a failing program as long as it is\n"
        "       explore --program TEXT --schedule NUMBER   plays one, as a failure printed it\n";

constexpr uint64_t kSchedulesPerProgram = 12;

struct Campaign {
    uint64_t schedules = 10'000;
    int64_t seconds = 0;  // 0: until all schedules are done
    uint64_t seed = 1;
    uint64_t jobs = 1;
    std::string library = "libcindral.so";
    bool shrinks = true;
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
    Program program;
    for (uint64_t run = 0; run < campaign.schedules; ++run) {
        if (run / kSchedulesPerProgram % campaign.jobs != job) continue;
        if (run % kSchedulesPerProgram == 0) {
            if (campaign.seconds != 0 && time(nullptr) - start >= campaign.seconds) return;
            program = generate(choicesFrom(seedOf(campaign, run)));
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
    if (!campaign.shrinks) return;
    const Case first{generate(choicesFrom(seedOf(campaign, finding.at))),
                     scheduleOf(campaign, finding.at)};
    const Case small = shrink(first, finding.invariant, campaign.library);
    std::cout << "shrunk from " << first.program.size() << " calls in "
              << first.program.threads.size() << " threads to " << small.program.size() << " in "
              << small.program.threads.size() << "; replay with\nexplore --program '"
              << toText(small.program) << "' --schedule " << small.schedule << '\n';
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

int playOne(const Case& one, const std::string& library) {
    Finding finding;
    if (!fails(one, 1, library, finding)) {
        std::cout << "all invariants held\n";
        return EXIT_SUCCESS;
    }
    std::cout << "violated: " << finding.invariant << '\n' << finding.text << '\n';
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Campaign campaign;
        Arguments arguments(argc, argv, kUsage);
        campaign.library = arguments.text("--library", campaign.library);
        const std::string program = arguments.text("--program", "");
        const uint64_t schedule = arguments.number("--schedule", 0);
        campaign.seconds = static_cast<int64_t>(arguments.number("--seconds", 0));
        campaign.schedules =
                arguments.number("--schedules", campaign.seconds != 0 ? UINT64_MAX / 2 : 10'000);
        campaign.seed = arguments.number("--seed", campaign.seed);
        campaign.jobs = std::max<uint64_t>(1, arguments.number("--jobs", 1));
        campaign.shrinks = arguments.number("--shrink", 1) != 0;
        arguments.done();
        if (!program.empty()) return playOne({parse(program), schedule}, campaign.library);
        return explore(campaign);
    } catch (const std::exception& error) {
        std::cerr << "explore: " << error.what() << '\n';
        return 2;
    }
}
