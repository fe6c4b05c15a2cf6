#pragma once

// How the game and the compositor react when the library holds the game, as far as the capture
// tells. Without it a replay feeds the captured times to the end, and a game that was held once has
// to make up for it in no time, which no game can.

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"

namespace replay {

// For every queued buffer: how long the game took from when it could begin, which is when it had
// queued the one before and the compositor had freed one since (if it did).
std::vector<int64_t> renderTimesNs(const LayerEvents& layer);

// A moment at which the compositor may take a buffer.
struct ConsumeChance {
    int64_t timeNs = 0;
    bool captured = false;  // it did so in the capture
};

// The captured consumes, and one more for every vsync without any, at the usual distance from the
// vsync.
std::vector<ConsumeChance> consumeChances(const LayerEvents& layer, const VsyncTrack& vsyncs);

// The most buffers that were ever in the layer's queue.
int mostPending(const LayerEvents& layer);

// The layer's buffer queue. isFull() and queue() belongs to one thread and consume() to another.
class BufferQueue {
  public:
    // Holds as many buffers as it ever did in the capture.
    explicit BufferQueue(const LayerEvents& layer)
          : mCapacity(mostPending(layer)), mPending(layer.pendingAtStart) {}

    bool isFull() const { return mPending.load() >= mCapacity; }
    void queue() { mPending.fetch_add(1); }

    // How many buffers are left after the compositor took one; nothing if it takes none. A buffer
    // that was not there when the compositor took it in the capture is taken at a later chance.
    std::optional<int> consume(bool captured);

  private:
    const int mCapacity;
    std::atomic<int> mPending;
    int mOwed = 0;  // only the consuming thread
};

}  // namespace replay
