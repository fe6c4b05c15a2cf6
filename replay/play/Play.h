#pragma once

// Plays a capture to the real library in virtual time, on the stand-in device.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"
#include "replay/game/Make.h"
#include "replay/play/Clocks.h"
#include "replay/play/Run.h"
#include "replay/play/Settings.h"

namespace replay {

// The modelled loop; its rules are in docs/model.md.
struct ModelOptions {
    Make make;
    std::vector<FrameWork> work;         // of each frame
    int64_t firstQueuedNs = 0;           // the first one is queued then, or when its work is done
    std::vector<int64_t> latchDelaysNs;  // from each vsync to its latch, see game/Make.h
    int64_t latchDelayNs = 0;            // of the vsyncs after those
    HintEffects effects;
};

struct PlayOptions {
    std::string library = "libcindral.so";
    bool withLibrary = true;            // false: the game and the compositor alone
    std::optional<ModelOptions> model;  // nothing: everything happens as captured
    int64_t cpuCostPerCallNs = 0;  // what every blocking call of the library costs in virtual time
};

// Throws InputError if the library cannot be opened, ReplayError if the run ends in a deadlock or
// the like; after that its threads are parked for ever and the process should end without clean-up.
Run play(const LayerEvents& layer, const VsyncTrack& vsyncs, const Settings& settings,
         const PlayOptions& options);

}  // namespace replay
