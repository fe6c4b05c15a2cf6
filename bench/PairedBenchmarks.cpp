// Every path in time, on Google Benchmark: it decides how many rounds there are and writes the
// results. Its iteration is a round; what was measured is in the counters. scripts/bench starts this and reads what it writes.

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <mutex>
#include <random>
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

// A round of the library and one floor.
template <typename Library, typename Floor>
Round inRandomOrder(double Round::*side, Library library, Floor floor) {
    static std::mt19937 random;
    Round round;
    const bool first = random() % 2 == 0;
    if (first) round.library = library();
    round.*side = floor();
    if (!first) round.library = library();
    return round;
}

// The rival calls the same side as the thread that is timed.
void runBesideRival(benchmark::State& state, const Stage& stage, const Path& path) {
    using Side = bench::Rival::Side;
    Scene& scene = enterScene(stage);
    bench::floor::setLayer(path.layer);
    const bench::EveryProcessor unpinned;
    bench::Rival rival(scene);
    run(state, [&] {
        const Round round = inRandomOrder(
                &Round::named,
                [&] {
                    rival.call(Side::kLibrary);
                    return bench::timeBlock(kCallsInBlock,
                                            [&](int n) { callLibrary(scene, path, n); });
                },
                [&] {
                    rival.call(Side::kFloor);
                    return bench::timeBlock(kCallsInBlock,
                                            [&](int n) { callFloor(path.namedFloor, path, n); });
                });
        rival.call(Side::kNothing);
        return round;
    });
}

double timeInTurn(const std::vector<std::string>& names, void (*call)(const char*)) {
    constexpr int kTurns = 10;
    const double turn = bench::timeBlock(kTurns, [&](int turns) {
        for (int i = 0; i < turns; ++i)
            for (const std::string& name : names) call(name.c_str());
    });
    return turn / static_cast<double>(names.size());
}

// Names that are no game's, of different lengths, one after the other: each is looked up in the ignore list, and
// classified anew when the others have pushed it off.
void layersInTurn(benchmark::State& state, const Stage& stage) {
    Scene& scene = enterScene(stage);
    constexpr int kLengths = 30;
    std::vector<std::string> names;
    for (int i = 0; i < state.range(0); ++i) {
        names.push_back("com.example.application" + std::string(i % kLengths, 'x') + "/Main#" +
                        std::to_string(i));
    }
    bench::floor::setLayer(names.front());
    const std::vector<std::string> found(names.size(), names.front());
    const bool classified = names.size() > Scene::kIgnoredLayers;
    run(state, [&] {
        return inRandomOrder(
                &Round::named,
                [&] { return timeInTurn(names, scene.library().trackBufferIncrement); },
                [&] {
                    return classified ? timeInTurn(names, bench::floor::classify)
                                      : timeInTurn(found, bench::floor::layerLockNamed);
                });
    });
}

// A game's first buffers, until the service has answered for it: this one does not, meanwhile.
void unknownGame(benchmark::State& state, const Stage& stage) {
    std::mutex answer;
    std::unique_lock<std::mutex> unanswered(answer);
    leaveScene();
    Scene scene(stage.options);
    device::StandInDevice::instance().setEventSink([&](const device::Event& event) {
        if (event.entryPoint != device::EntryPoint::kPerfGetFeedback) return;
        const std::lock_guard<std::mutex> wait(answer);
    });
    const Path path{"", bench::EntryPoint::kIncrement, Scene::layer(0), nullptr,
                    bench::floor::classify};
    PairedRun paired(scene, path, kPreparedCallsInBlock);
    run(state, [&] { return paired.round(); });
    unanswered.unlock();
    leaveScene();
}

enum Part { kLoad, kInit, kUnload };

double timePart(Part part, const char* path) {
    std::array<int64_t, 4> times{nowNs()};
    auto library = std::make_unique<device::CindralLibrary>(path);
    times[kInit] = nowNs();
    library->init();
    times[kUnload] = nowNs();
    library.reset();
    times[kUnload + 1] = nowNs();
    return static_cast<double>(times[part + 1] - times[part]);
}

void loadInitUnload(benchmark::State& state, Part part) {
    leaveScene();
    bench::configureDevice({});
    const device::ServiceLibraries services;
    run(state, [&] {
        return inRandomOrder(
                &Round::floor, [&] { return timePart(part, "libcindral.so"); },
                [&] { return timePart(part, "libbench_module.so"); });
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
    add("increment_beside_a_rival", [&contended](benchmark::State& state) {
        runBesideRival(state, contended, contended.paths[0]);
    });
}

void addLayersAndLife(const Stage& emptyStage) {
    auto* inTurn = add("layers_in_turn", [&](benchmark::State& s) { layersInTurn(s, emptyStage); });
    for (const int layers : {1, 4, 5, 20, 100}) inTurn->Arg(layers);
    add("unknown_game", [&](benchmark::State& s) { unknownGame(s, emptyStage); });
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
        addLayersAndLife(emptyStage);
        benchmark::RunSpecifiedBenchmarks();
        leaveScene();
    } catch (const std::exception& error) {
        fprintf(stderr, "paired_benchmarks: %s\n", error.what());
        return 1;
    }
    return 0;
}
