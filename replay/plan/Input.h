#pragma once

// What can be played, and how the user names it.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "replay/capture/Capture.h"

namespace replay {

// Where an input comes from. Cheap to copy: nothing is read before openInput().
struct InputChoice {
    std::string capture;       // a path, or "-" for standard input; empty: no capture
    std::string layerPattern;  // a regular expression; empty will do if there is only one layer
    std::string layer;         // its exact name, instead of a pattern; may be empty
    std::string workload;      // a game by rule, if there is no capture
    int frames = 0;            // of the workload
    bool join = false;         // make one layer of all that match the pattern
    // The part to play: seconds since the first event ("2.5"), or a frame ("300f"); may be empty.
    std::string from;
    std::string to;

    std::string name() const;  // for people
    // The options that choose the part and the layers, so that they can be written down.
    std::vector<std::string> toOptions() const;
    bool operator==(const InputChoice& other) const;
};

// A capture with the layer that was chosen, or a synthetic workload with a layer made up for it.
struct Input {
    Capture capture;
    size_t layerIndex = 0;
    std::string workload;  // empty: the capture is what is played
    int frames = 0;        // of the workload
    // What was made of the capture, in words, by name.
    std::vector<std::pair<std::string, std::string>> notes;

    const LayerEvents& layer() const { return capture.layers.at(layerIndex); }
};

// With all its layers. Throws InputError, like those below.
Capture openCapture(const InputChoice& choice);

Input openInput(const InputChoice& choice);

// The same, with a bar on standard error while a big file is read. For one input at a time.
Input openInputVisibly(const InputChoice& choice);

}  // namespace replay
