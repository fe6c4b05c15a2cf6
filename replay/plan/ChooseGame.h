#pragma once

// Which game a capture is taken for: the one that gives back the capture when it is played without
// the library.

#include <optional>

#include "replay/capture/Capture.h"
#include "replay/findings/Reproduction.h"
#include "replay/plan/Setup.h"
#include "replay/play/Play.h"

namespace replay {

struct ChosenGame {
    ModelOptions model;  // on the display that the capture was made on
    Reproduction reproduction;
};

// Plays the capture a few times, without the library.
ChosenGame chooseGame(const Capture& capture, const LayerEvents& layer, const VsyncTrack& captured,
                      const ModelChoice& choice);

}  // namespace replay
