#pragma once

// What is measured: the entry points, in the states that make them take different ways.

#include <vector>

#include "bench/Floor.h"
#include "bench/Scene.h"

namespace bench {

enum class EntryPoint { kIncrement, kDecrement, kVsync, kSetPeriod };

struct Path {
    const char* name;
    EntryPoint entry;
    const char* layer;  // the name that is passed; null where none is
    floor::Floor floor;
    floor::Floor namedFloor = nullptr;        // where a layer is looked up by that name
    void (*prepare)(Scene& scene) = nullptr;  // before every single call
};

// Calls the library's entry point, or a floor, `times` in a row.
void callLibrary(Scene& scene, const Path& path, int times);
void callFloor(floor::Floor floor, const Path& path, int times);

struct Stage {
    SceneOptions options;
    std::vector<Path> paths;
};

// Paths on which no thread is woken.
std::vector<Stage> quietStages();
// The same, and one that takes a late frame to prepare, too long for timing: what instructions are
// counted on.
std::vector<Stage> countedStages();
// The ones that wake a thread.
std::vector<Stage> wakingStages();
// A path of the second layer while the first one's producer is held; and one of the first layer,
// with the second tracked as well.
std::vector<Stage> contendedStages();

}  // namespace bench
