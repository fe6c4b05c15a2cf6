#pragma once

// How long a game works on each frame, told from a capture that shows only when its buffers were
// queued. An interval between two buffers holds work and waiting: for a free buffer, for a vsync,
// for the player. No capture of the counters alone tells them apart for certain, hence several
// estimators; docs/model.md has what each assumes.
//
// Pure functions; times in ns.

#include <cstdint>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"

namespace replay {

// No frame takes less. Counters in one microsecond are two events, but never two frames.
constexpr int64_t kMinWorkNs = 100'000;

struct WorkEstimator {
    enum class Kind { kInterval, kSinceFree, kShortestAfterStall, kPercent, kFixed };

    Kind kind = Kind::kShortestAfterStall;
    double amount = 0;  // kPercent: percent; kFixed: ms

    std::string name() const;  // as the user writes it
};

// "interval", "since-free", "shortest-after-stall", "percent:60", "fixed:8.5". Throws InputError.
WorkEstimator parseWorkEstimator(const std::string& text);

// The ones that need no figure, to show how far an answer depends on the choice.
std::vector<WorkEstimator> allWorkEstimators();

// The work of every queued buffer. `buffers` is how many the layer's queue has.
std::vector<int64_t> workTimesNs(const LayerEvents& layer, int64_t periodNs, int buffers,
                                 const WorkEstimator& estimator);

// For every queued buffer: how long since the game could begin with it, which is when it had queued
// the one before and a buffer was free.
std::vector<int64_t> sinceFreeNs(const LayerEvents& layer, int buffers);

// What one frame takes when nothing waits: the shortest times right after a stall, because a game
// that is behind does not dally.
int64_t busyWorkNs(const std::vector<int64_t>& sinceFreeNs, int64_t periodNs);

// A queue needs a buffer to show and one to work on. More than Android's limit is damage.
constexpr int kMinBuffers = 2;
constexpr int kMaxBuffers = 64;

// How many buffers the queue must have had: the most that were ever queued, and the one on the
// screen.
int buffersSeen(const LayerEvents& layer);

// From a vsync to the latch of a buffer, in most cases; a usual one without latches.
int64_t usualLatchDelayNs(const LayerEvents& layer, const VsyncTrack& vsyncs);

}  // namespace replay
