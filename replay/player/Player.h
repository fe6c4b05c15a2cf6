#pragma once

// Plays a capture to the real library in virtual time, on the stand-in device.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device/StandInDevice.h"
#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"
#include "replay/player/Clocks.h"
#include "replay/player/EventLog.h"
#include "replay/player/Settings.h"

namespace replay {

// One call of the compositor into the library. It is delivered late if its thread was still held by
// the call before. Times are ns since the first event of the capture.
struct FedEvent {
    enum class Kind { kInit, kVsyncPeriod, kQueue, kConsume, kVsync };
    static constexpr int kKinds = 5;

    Kind kind = Kind::kInit;
    int thread = 0;
    int64_t dueNs = 0;
    int64_t deliveredNs = 0;
    int64_t returnedNs = 0;
    int64_t value = 0;  // kInit: the answer; kVsyncPeriod: ns; kConsume: buffers pending

    int64_t heldNs() const { return returnedNs - deliveredNs; }
    int64_t lateNs() const { return deliveredNs - dueNs; }
};

const char* toString(FedEvent::Kind kind);

// What went in and what came out, each in the order it happened.
struct Run {
    std::vector<FedEvent> fed;
    EventLog seen;                         // the library's calls, log lines and markers
    std::vector<std::string> threadNames;  // by FedEvent::thread and standin::Event::thread
    int64_t endNs = 0;                     // the library was unloaded
    bool withLibrary = true;
    bool modelled = false;  // the game and the compositor reacted; otherwise all came as captured
    // What the user chose, in words, for whoever reads the results.
    std::vector<std::pair<std::string, std::string>> conditions;

    std::string threadName(int thread) const;
};

// The modelled loop; its rules are in docs/model.md.
struct ModelOptions {
    std::vector<int64_t> workNs;  // of each frame
    int buffers = 3;              // of the layer's queue, with the one on the screen
    int64_t latchDelayNs = 0;     // from a vsync to the latch
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
