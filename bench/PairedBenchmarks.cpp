// Every path in time, on Google Benchmark: it decides how many rounds there are and writes the
// results. Its iteration is a round; what was measured is in the counters. scripts/bench starts this and reads what it writes.

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <thread>

#include "bench/Contention.h"
#include "bench/LibraryThreads.h"
#include "bench/PairedRun.h"

namespace {

using bench::LibraryThreads;
using bench::nowNs;
using bench::PairedRun;
using bench::Path;
using bench::Round;
using bench::Scene;
using bench::Stage;

constexpr int kCallsInBlock = 200;
constexpr int kWakingCallsInBlock = 20;
constexpr int kPreparedCallsInBlock = 20;

std::unique_ptr<Scene> gScene;  // of the latest benchmark; those of one stage follow each other
const Stage* gStage = nullptr;

void leaveScene() {
    gScene.reset();
    gStage = nullptr;
}

Scene& enterScene(const Stage& stage) {
    if (gStage == &stage) return *gScene;
    leaveScene();
    gScene = std::make_unique<Scene>(stage.options);
    gStage = &stage;
    return *gScene;
}

template <typename Measure>
void run(benchmark::State& state, Measure round) {
    round();  // caches and branch predictors
    std::vector<Round> rounds;
    for (auto _ : state) rounds.push_back(round());
    report(state, rounds);
}

void runPath(benchmark::State& state, const Stage& stage, const Path& path) {
    Scene& scene = enterScene(stage);
    if (path.layer != nullptr) bench::floor::setLayer(path.layer);
    PairedRun paired(scene, path, path.prepare != nullptr ? kPreparedCallsInBlock : kCallsInBlock);
    run(state, [&] { return paired.round(); });
}

// Real-time threads get no time at all for a part of every second in which they used up theirs. In
// that part nobody is woken, so such a round is made again.
Round wakingRound(PairedRun& paired, const Path& path) {
    const int sides = path.namedFloor != nullptr ? 3 : 2;
    for (int attempt = 0; attempt < 1'000; ++attempt) {
        const int before = bench::threads::waitCount();
        const Round round = paired.round();
        if (bench::threads::waitCount() - before >= sides * kWakingCallsInBlock) return round;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    throw std::runtime_error("the threads that should be woken do not run");
}

void runWakingPath(benchmark::State& state, const Stage& stage, const Path& path) {
    Scene& scene = enterScene(stage);
    if (path.layer != nullptr) bench::floor::setLayer(path.layer);
    PairedRun paired(scene, path, kWakingCallsInBlock);
    run(state, [&] { return wakingRound(paired, path); });
}

void runWhileOneIsHeld(benchmark::State& state, const Stage& stage, const Path& path) {
    Scene& scene = enterScene(stage);
    bench::floor::setLayer(path.layer);
    const bench::HeldProducer held(scene);
    PairedRun paired(scene, path, kCallsInBlock);
    run(state, [&] {
        held.check();
        return paired.round();
    });
}

// The rivals call the same side as the thread that is timed.
void runAmongRivals(benchmark::State& state, const Stage& stage, const Path& path) {
    using Side = bench::Rivals::Side;
    Scene& scene = enterScene(stage);
    bench::floor::setLayer(path.layer);
    const bench::EveryProcessor unpinned;
    bench::Rivals rivals(scene, static_cast<int>(state.range(0)));
    run(state, [&] {
        Round round;
        rivals.call(Side::kLibrary);
        round.library =
                bench::timeBlock(kCallsInBlock, [&](int n) { callLibrary(scene, path, n); });
        rivals.call(Side::kFloor);
        round.named = bench::timeBlock(kCallsInBlock,
                                       [&](int n) { callFloor(path.namedFloor, path, n); });
        rivals.call(Side::kNothing);
        return round;
    });
}

// Names that are no application's, one after the other: each is looked up in the ignore list, and
// classified anew when the others have pushed it off.
void layersInTurn(benchmark::State& state, const Stage& stage) {
    Scene& scene = enterScene(stage);
    std::vector<std::string> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back("com.example.application/com.example.application.Main#" +
                        std::to_string(i));
    }
    run(state, [&] {
        Round round;
        round.library = bench::timeBlock(1, [&](int) {
            for (const std::string& name : names)
                scene.library().trackBufferIncrement(name.c_str());
        });
        round.library /= static_cast<double>(names.size());
        return round;
    });
}

enum Part { kLoad, kInit, kUnload };

void loadInitUnload(benchmark::State& state, Part part) {
    leaveScene();
    bench::configureDevice({});
    const standin::ServiceLibraries services;
    run(state, [&] {
        std::array<int64_t, 4> times{nowNs()};
        auto library = std::make_unique<replay::CindralLibrary>();
        times[kInit] = nowNs();
        library->init();
        times[kUnload] = nowNs();
        library.reset();
        times[kUnload + 1] = nowNs();
        Round round;
        round.library = static_cast<double>(times[part + 1] - times[part]);
        return round;
    });
}

template <typename Body>
benchmark::internal::Benchmark* add(const std::string& name, Body body) {
    return benchmark::RegisterBenchmark(name.c_str(), body)->UseRealTime();
}

template <typename Run>
void addStages(const std::vector<Stage>& stages, Run runOne) {
    for (const Stage& stage : stages) {
        for (const Path& path : stage.paths) {
            add(path.name, [&, runOne](benchmark::State& state) { runOne(state, stage, path); });
        }
    }
}

void addContention(const std::vector<Stage>& stages) {
    const Stage& held = stages[0];
    add("increment_while_another_is_held",
        [&held](benchmark::State& state) { runWhileOneIsHeld(state, held, held.paths[0]); });
    const Stage& contended = stages[1];
    add("increment_among_rivals",
        [&contended](benchmark::State& state) {
            runAmongRivals(state, contended, contended.paths[0]);
        })
            ->Arg(1)
            ->Arg(3);
}

void addUnpaired(const Stage& emptyStage) {
    auto* inTurn = add("layers_in_turn", [&](benchmark::State& s) { layersInTurn(s, emptyStage); });
    for (const int layers : {1, 4, 5, 20, 100}) inTurn->Arg(layers);
    add("load", [](benchmark::State& state) { loadInitUnload(state, kLoad); });
    add("init", [](benchmark::State& state) { loadInitUnload(state, kInit); });
    add("unload", [](benchmark::State& state) { loadInitUnload(state, kUnload); });
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const std::vector<Stage> quiet = bench::quietStages();
    const std::vector<Stage> waking = bench::wakingStages();
    const std::vector<Stage> contended = bench::contendedStages();
    bench::SceneOptions empty;
    empty.ignoredLayers = false;
    const Stage emptyStage{empty, {}};
    try {
        bench::pinToOneProcessor();
        addStages(quiet, runPath);
        addStages(waking, runWakingPath);
        addContention(contended);
        addUnpaired(emptyStage);
        benchmark::RunSpecifiedBenchmarks();
        leaveScene();
    } catch (const std::exception& error) {
        fprintf(stderr, "paired_benchmarks: %s\n", error.what());
        return 1;
    }
    return 0;
}
