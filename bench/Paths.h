#pragma once

// What is measured: the entry points, in the states that make them take different ways. No path
// wakes a thread.

#include <vector>

#include "bench/Floor.h"
#include "bench/Scene.h"

namespace bench {

enum class EntryPoint { kIncrement, kDecrement, kVsync, kSetPeriod };

struct Path {
    const char* name;
    EntryPoint entry;
    const char* layer;  // the name that is passed; null where none is
    floor::Sequence floor;
    void (*prepare)(Scene& scene) = nullptr;  // before every single call
    bool timed = true;  // false: it takes too long to prepare, and is only counted

    bool looksUpLayer() const { return layer != nullptr && floor != floor::Sequence::kNothing; }
};

struct Stage {
    const char* name;
    SceneOptions options;
    std::vector<Path> paths;
};

std::vector<Stage> stages();

// Calls the library's entry point, or the path's floor, `times` in a row.
void callLibrary(const Scene& scene, const Path& path, int times);
void callFloor(const Path& path, bool named, int times);

}  // namespace bench
