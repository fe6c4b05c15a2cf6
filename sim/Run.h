#pragma once

#include "sim/Engine.h"
#include "sim/Primitives.h"
#include "sim/Threads.h"
#include "sim/WeakMemory.h"

namespace sim {

// All there is of one call of sim::run(). Found by the intercepted calls through tSelf.
struct Run {
    explicit Run(const Options& options)
          : engine(options), primitives(engine), threads(engine, *this), memory(engine) {}

    Engine engine;
    Primitives primitives;
    Threads threads;
    WeakMemory memory;
};

}  // namespace sim
