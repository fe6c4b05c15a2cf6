#pragma once

#include "replay/play/Play.h"

namespace replay {

// What the modelled loop comes to without a library and without hints: to the nanosecond what play()
// gives then, but in one loop, because a game and a compositor that nobody holds need no threads. For
// trying many games on one capture.
LayerEvents playUnheld(const LayerEvents& captured, const VsyncTrack& vsyncs,
                       const ModelOptions& model);

}  // namespace replay
