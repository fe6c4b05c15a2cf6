// hot_paths count: runs every path, and its floors, for callgrind to count, each as a part of its own in callgrind's
//     output, named "<path> <which>"; and prints what the library keeps in each state.
// hot_paths time SECONDS: times every path beside its floors, so long each. A round times a block of calls of each, in
//     random order. What counts is the median over the rounds of the ratios within a round, so that whatever else the
//     machine does meets both sides alike.
// scripts/measure starts both.

#include <malloc.h>
#include <sched.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <string>

#include "bench/LibraryThreads.h"
#include "bench/Paths.h"

namespace {

using bench::nowNs;
using bench::Path;
using bench::Scene;
using bench::Stage;

enum Side { kLibrary, kFloor, kNamed, kSides };
constexpr std::array<const char*, kSides> kSideNames{"library", "floor", "named"};

void call(const Scene& scene, const Path& path, int side, int times) {
    if (side == kLibrary) return callLibrary(scene, path, times);
    callFloor(path, side == kNamed, times);
}

// Without the floor with a name where no name is looked up.
int sidesOf(const Path& path) {
    return path.looksUpLayer() ? kSides : kNamed;
}

void enter(const Path& path, Scene& scene) {
    if (path.layer != nullptr) bench::floor::setLayer(path.layer);
    if (path.entry == bench::EntryPoint::kIncrement) scene.keepMeasuring();
}

void count(const Path& path, Scene& scene) {
    constexpr int kWarmUps = 10;  // binds the calls, and the threshold is at its ceiling
    constexpr int kCounts = 5;
    enter(path, scene);
    for (int side = 0; side < sidesOf(path); ++side) {
        const std::string name = std::string(path.name) + ' ' + kSideNames.at(side);
        for (int i = 0; i < kWarmUps + kCounts; ++i) {
            if (side == kLibrary && path.prepare != nullptr) path.prepare(scene);
            CALLGRIND_ZERO_STATS;
            call(scene, path, side, 1);
            if (i >= kWarmUps) CALLGRIND_DUMP_STATS_AT(name.c_str());
        }
    }
}

void countAll() {
    const std::vector<Stage> stages = bench::stages();
    { const Scene warmUp(stages.back().options); }  // what the C library keeps for good
    for (const Stage& stage : stages) {
        const size_t before = mallinfo2().uordblks;
        Scene scene(stage.options);
        printf("state %s heap %zu threads %d\n", stage.name, mallinfo2().uordblks - before,
               stage.options.hasEnvironment() ? bench::threads::started() : 0);
        for (const Path& path : stage.paths) count(path, scene);
    }
}

using Round = std::array<double, kSides>;  // mean times of one call, ns

// The floors get the same preparation, which leaves the same things in the caches.
double timePrepared(const Path& path, Scene& scene, int side, double clockCost) {
    constexpr int kCalls = 20;
    double sum = 0;
    for (int i = 0; i < kCalls; ++i) {
        path.prepare(scene);
        const int64_t before = nowNs();
        call(scene, path, side, 1);
        sum += static_cast<double>(nowNs() - before) - clockCost;
    }
    return sum / kCalls;
}

// A block is long enough for the clock's own cost to vanish, and short enough to fit between two
// interruptions.
double timeSide(const Path& path, Scene& scene, int side, double clockCost) {
    constexpr int kCalls = 200;
    if (path.prepare != nullptr) return timePrepared(path, scene, side, clockCost);
    const int64_t before = nowNs();
    call(scene, path, side, kCalls);
    return static_cast<double>(nowNs() - before) / kCalls;
}

Round timeRound(const Path& path, Scene& scene, double clockCost) {
    static std::mt19937 random{20};  // any seed; fixed, so that two runs do the same
    enter(path, scene);
    Round round{};
    std::array<int, kSides> order{kLibrary, kFloor, kNamed};
    std::shuffle(order.begin(), order.end(), random);
    for (const int side : order)
        if (side < sidesOf(path)) round.at(side) = timeSide(path, scene, side, clockCost);
    return round;
}

// The median and its 95 % confidence interval by the sign test, which assumes nothing about how the
// samples are distributed: the ranks that a fair coin leaves with 95 % probability.
std::array<double, 3> medianInterval(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const auto count = static_cast<double>(samples.size());
    const double reach = 1.96 * std::sqrt(count) / 2;
    const auto at = [&](double rank) {
        return samples[static_cast<size_t>(std::clamp(rank, 0.0, count - 1))];
    };
    return {at(std::floor(count / 2)), at(std::floor(count / 2 - reach) - 1),
            at(std::ceil(count / 2 + reach))};
}

template <typename Value>
std::array<double, 3> over(const std::vector<Round>& rounds, Value value) {
    std::vector<double> values;
    for (const Round& round : rounds) values.push_back(value(round));
    return medianInterval(values);
}

double clockCostNs() {
    std::vector<Round> costs(10'001);
    for (Round& cost : costs) {
        const int64_t before = nowNs();
        cost[0] = static_cast<double>(nowNs() - before);
    }
    return over(costs, [](const Round& cost) { return cost[0]; })[0];
}

// One line: the path, the library's time, then each floor's time and the ratio to it with its interval.
void print(const Path& path, const std::vector<Round>& rounds) {
    printf("%s", path.name);
    for (int side = 0; side < sidesOf(path); ++side) {
        printf(" %.2f", over(rounds, [=](const Round& round) { return round.at(side); })[0]);
        if (side == kLibrary) continue;
        for (const double ratio :
             over(rounds, [=](const Round& round) { return round[kLibrary] / round.at(side); }))
            printf(" %.4f", ratio);
    }
    printf("\n");
}

void timeAll(double seconds) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(sched_getcpu(), &one);
    sched_setaffinity(0, sizeof(one), &one);
    const double clockCost = clockCostNs();
    for (const Stage& stage : bench::stages()) {
        Scene scene(stage.options);
        for (const Path& path : stage.paths) {
            if (!path.timed) continue;
            timeRound(path, scene, clockCost);  // caches and branch predictors
            std::vector<Round> rounds;
            const int64_t end = nowNs() + static_cast<int64_t>(seconds * 1e9);
            while (nowNs() < end) rounds.push_back(timeRound(path, scene, clockCost));
            print(path, rounds);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const double seconds = argc > 2 ? atof(argv[2]) : 0;
    if (!(mode == "count" && argc == 2) && !(mode == "time" && seconds > 0)) {
        fprintf(stderr, "usage: hot_paths count | time SECONDS\n");
        return 2;
    }
    try {
        mode == "count" ? countAll() : timeAll(seconds);
    } catch (const std::exception& error) {
        fprintf(stderr, "hot_paths: %s\n", error.what());
        return 1;
    }
    return 0;
}
