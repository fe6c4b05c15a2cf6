#pragma once

// How well the model gives back what was captured, when it is played without the library: a model
// that does not is no ground for what would have happened with it.

#include <cstdint>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"

namespace replay {

struct Reproduction {
    struct Figures {
        double framesPerSecond = 0;
        int64_t lateFrames = 0;
        int64_t stutters = 0;
        int64_t latencyP50Ns = 0;
    };

    Figures captured;
    Figures modelled;
    std::string game;       // what it waits for, in words
    std::string runnerUp;   // the next best, and whether that one gives back the capture
    bool measured = false;  // the capture tells the game; otherwise it was tried
    int64_t workP50Ns = 0;

    // Which figures are off by more than 1 %, by more than 10 % and 3 frames, by more than 1 ms.
    std::vector<std::string> misses() const;
    bool holds() const { return misses().empty(); }
    // "59.9 of 60.0 frames/s, 33 of 34 late, 5 of 5 stutters, latency 19.2 of 19.4 ms"
    std::string describe() const;
    // How far off, to choose the least; below 1 it holds.
    double distance() const;
};

// Of what was captured, or of what a model made of it.
Reproduction::Figures reproductionFigures(const LayerEvents& events, const Refresh& refresh);

}  // namespace replay
