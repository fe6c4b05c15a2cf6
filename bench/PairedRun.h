#pragma once

// Times a path beside its floors. A round times a block of calls of each, in random order; what is
// reported is the median over the rounds of the ratios within a round, so that whatever else the
// machine does meets both sides alike.

#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "bench/Clock.h"
#include "bench/Paths.h"

namespace bench {

// Mean times of one call (ns).
struct Round {
    double library = 0;
    double floor = 0;
    double named = 0;  // 0 where the path looks up no name
};

class PairedRun {
  public:
    // `calls`: in a block. Long enough for the clock's own cost to vanish, short enough to fit
    // between two interruptions.
    PairedRun(Scene& scene, const Path& path, int calls)
          : mScene(scene), mPath(path), mCalls(calls) {}

    Round round();

  private:
    void timeSide(int side, Round& round);
    template <typename Block>
    double time(Block block);

    Scene& mScene;
    const Path& mPath;
    const int mCalls;
    std::mt19937 mRandom{20};  // any seed; fixed, so that two runs do the same
};

// Puts the medians of the rounds, and their ratios with 95 % confidence intervals, into the
// benchmark's counters.
void report(benchmark::State& state, const std::vector<Round>& rounds);

// Mean time of a call (ns), over a block.
template <typename Block>
double timeBlock(int calls, Block block) {
    const int64_t before = nowNs();
    block(calls);
    return static_cast<double>(nowNs() - before) / calls;
}

}  // namespace bench
