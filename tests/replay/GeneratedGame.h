#pragma once

// Games of known make on a display of known rate, as the tracing of a phone would show them. The
// simulation shares nothing with the one that is tested by it.

#include <cstdint>
#include <string>
#include <vector>

#include "replay/findings/Reproduction.h"

struct GeneratedGame {
    enum class Make { kBuffers, kVsyncs, kTimer, kStages };
    static constexpr int kMakes = 4;

    Make make = Make::kBuffers;
    int hz = 60;
    int otherHz = 0;  // of the display in the third second and the fourth; 0: no other
    int buffers = 3;
    int loadPercent = 60;      // what a frame's work takes of a vsync period
    bool takesMissed = false;  // kVsyncs: a vsync that came while it worked begins the next frame
    int everyVsyncs = 1;       // kVsyncs: a frame begins at the earliest so many after another
    bool scheduled = false;    // the capture has scheduling
    bool slots = false;        // and the compositor's queue slices
    int64_t holdNs = 0;        // every queue call takes so long
    unsigned seed = 1;
    // The same game again, but for when threads are woken and vsyncs come to the microsecond.
    int chance = 0;
    int frames = 400;

    std::string name() const;
};

// What happened, for comparison with what is told from the capture.
struct GeneratedTruth {
    replay::Reproduction::Figures figures;
    int64_t workP50Ns = 0;
    std::string ftrace;
};

// The game number `seed` of all, all of its properties drawn from it but `make` and `scheduled`.
GeneratedGame generatedGame(GeneratedGame::Make make, bool scheduled, unsigned seed);

GeneratedTruth generate(const GeneratedGame& game);
