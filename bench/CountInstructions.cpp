// Runs every path once, and its floors, for callgrind to count: each as a part of its own in
// callgrind's output, named "<path> <which>". scripts/count-instructions starts it, lets callgrind
// collect from the entry to the exit of these functions, and reads the parts.

#include <valgrind/callgrind.h>

#include <cstdio>
#include <exception>
#include <string>

#include "bench/Paths.h"

namespace {

using bench::Path;
using bench::Scene;

constexpr int kCounts = 3;    // of each
constexpr int kWarmUps = 10;  // binds the calls, and the threshold is at its ceiling

template <typename Call, typename Prepare>
void count(const std::string& name, Call call, Prepare prepare) {
    for (int i = 0; i < kWarmUps; ++i) {
        prepare();
        call();
    }
    for (int i = 0; i < kCounts; ++i) {
        prepare();
        CALLGRIND_ZERO_STATS;
        call();
        CALLGRIND_DUMP_STATS_AT(name.c_str());
    }
}

void countFloor(const Path& path, bench::floor::Floor floor, const char* which) {
    if (floor == nullptr) return;
    count(
            std::string(path.name) + ' ' + which, [&] { callFloor(floor, path, 1); }, [] {});
}

void countPath(const Path& path, Scene& scene) {
    if (path.entry == bench::EntryPoint::kIncrement) scene.keepMeasuring();
    if (path.layer != nullptr) bench::floor::setLayer(path.layer);
    count(
            std::string(path.name) + " library", [&] { callLibrary(scene, path, 1); },
            [&] {
                if (path.prepare != nullptr) path.prepare(scene);
            });
    countFloor(path, path.floor, "floor");
    countFloor(path, path.namedFloor, "named");
}

}  // namespace

int main() {
    try {
        for (const bench::Stage& stage : bench::countedStages()) {
            Scene scene(stage.options);
            for (const Path& path : stage.paths) countPath(path, scene);
        }
    } catch (const std::exception& error) {
        fprintf(stderr, "count_instructions: %s\n", error.what());
        return 1;
    }
    return 0;
}
