#include "bench/PairedRun.h"

#include <algorithm>
#include <array>

#include "bench/Statistics.h"

namespace bench {

namespace {

// What reading the clock twice takes.
double clockCostNs() {
    std::vector<double> costs;
    for (int i = 0; i < 10'001; ++i) {
        const int64_t before = nowNs();
        costs.push_back(static_cast<double>(nowNs() - before));
    }
    return medianInterval(costs).median;
}

// Where something has to happen before every call, each is timed by itself.
template <typename Prepare, typename Block>
double timePrepared(int calls, Prepare prepare, Block block) {
    static const double kClockCost = clockCostNs();
    double sum = 0;
    for (int i = 0; i < calls; ++i) {
        prepare();
        const int64_t before = nowNs();
        block(1);
        sum += static_cast<double>(nowNs() - before) - kClockCost;
    }
    return sum / calls;
}

std::vector<double> column(const std::vector<Round>& rounds, double Round::*side) {
    std::vector<double> values;
    for (const Round& round : rounds) values.push_back(round.*side);
    return values;
}

void reportSide(benchmark::State& state, const std::vector<Round>& rounds, double Round::*side,
                const std::string& name) {
    std::vector<double> ratios;
    for (const Round& round : rounds) ratios.push_back(round.library / round.*side);
    const MedianInterval ratio = medianInterval(ratios);
    state.counters[name + "_ns"] = medianInterval(column(rounds, side)).median;
    state.counters[name + "_ratio"] = ratio.median;
    state.counters[name + "_ratio_low"] = ratio.low;
    state.counters[name + "_ratio_high"] = ratio.high;
}

}  // namespace

Round PairedRun::round() {
    if (mPath.entry == EntryPoint::kIncrement) mScene.keepMeasuring();
    Round round;
    std::array<int, 3> order{0, 1, 2};
    std::shuffle(order.begin(), order.end(), mRandom);
    for (const int side : order) timeSide(side, round);
    return round;
}

void PairedRun::timeSide(int side, Round& round) {
    if (side == 0) {
        round.library = time([&](int calls) { callLibrary(mScene, mPath, calls); });
    } else if (side == 1 && mPath.floor != nullptr) {
        round.floor = time([&](int calls) { callFloor(mPath.floor, mPath, calls); });
    } else if (side == 2 && mPath.namedFloor != nullptr) {
        round.named = time([&](int calls) { callFloor(mPath.namedFloor, mPath, calls); });
    }
}

// The floors get the same preparation, which leaves the same things in the caches.
template <typename Block>
double PairedRun::time(Block block) {
    if (mPath.prepare == nullptr) return timeBlock(mCalls, block);
    return timePrepared(
            mCalls, [&] { mPath.prepare(mScene); }, block);
}

void report(benchmark::State& state, const std::vector<Round>& rounds) {
    state.counters["library_ns"] = medianInterval(column(rounds, &Round::library)).median;
    if (rounds.front().floor > 0) reportSide(state, rounds, &Round::floor, "floor");
    if (rounds.front().named > 0) reportSide(state, rounds, &Round::named, "named");
}

}  // namespace bench
