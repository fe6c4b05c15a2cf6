#pragma once

// What a game waits for before it begins a frame, and what of its frames is work if that is so. The
// rules are in docs/model.md. Pure functions; times in ns.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "replay/capture/Capture.h"
#include "replay/capture/VsyncTrack.h"
#include "replay/game/Road.h"

namespace replay {

// No frame takes less. Counters in one microsecond are two events, but never two frames.
constexpr int64_t kMinWorkNs = 100'000;

struct Make {
    enum class Kind {
        kBuffer,  // nothing but a free buffer
        kVsync,   // a vsync
        kTimer,   // its own timer, that long after the frame before began
        kStages,  // another thread, which works on the next frame meanwhile
    };

    // A display's rates have each their own.
    struct Phase {
        int64_t periodNs = 0;
        int64_t phaseNs = 0;
    };

    Kind kind = Kind::kBuffer;
    int buffers = 3;                 // of the layer's queue, with the one on the screen
    std::vector<Phase> phases = {};  // kVsync: it begins so long after one
    int everyVsyncs = 1;             // kVsync: one frame for so many, or fewer
    bool takesMissed = false;  // kVsync: one that came while it worked begins the next at once
    int64_t wakeDelayNs = 0;   // kVsync and kStages: and gets going so long after that
    int64_t timerNs = 0;       // kTimer
    int64_t freeDelayNs = 0;   // from a latch until the game has the buffer that it freed

    // "starts at vsyncs, 0.140 ms after, 3 buffers"
    std::string describe() const;
    // That of the period nearest to it.
    int64_t phaseNs(int64_t periodNs) const;
    Part waitsFor() const;
};

// The vsyncs of a track, which goes on after its end at its period. For one thread.
class Beats {
  public:
    explicit Beats(const VsyncTrack& track) : mTrack(track) {}
    int64_t timeNs(size_t index) const;
    // The first one at or after the time.
    size_t indexFrom(int64_t timeNs) const;
    int64_t periodAt(int64_t timeNs) const { return mTrack.periodAt(timeNs); }

  private:
    const VsyncTrack& mTrack;
    mutable size_t mLast = 0;  // found; the next one is nearly always near
};

struct FrameWork {
    int64_t workNs = 0;
    int64_t timerNs = 0;  // kTimer: since the frame before began, as captured; 0: the usual
    // kVsync: let pass before it, though it could have begun; below 0: it began while the frame
    // before was not queued yet.
    int64_t passedVsyncs = 0;
    int64_t firstStageNs = 0;  // kStages: what the other thread did for it before
    Parts parts{};             // of workNs, as captured; all kRunning if not known
};

// When the game may begin the frame, buffers aside: the queue call of the frame before returned at
// `returnedNs`, and it could have begun that one at `lastReadyNs`. Not for kStages, whose other
// thread decides.
int64_t readyNs(const Make& make, const Beats& beats, const FrameWork& frame, int64_t returnedNs,
                int64_t lastReadyNs);

// A make and the work of every queued buffer under it.
struct Game {
    Make make;
    std::vector<FrameWork> work;
    bool measured = false;  // the capture tells who waited for what
    // How little the capture looks like it, see docs/model.md: by how much the work varies, and how
    // many frames could not have been in time, in periods. Less is better.
    double strangeness = 0;
};

// What a layer's capture tells about its game.
struct GameEvidence {
    const LayerEvents& layer;
    const VsyncTrack& vsyncs;
    const Scheduling& scheduling;
    const std::vector<Road>& roads;  // of the layer
    int producer = -1;
    std::vector<int> buffers;  // to try; the capture knows if there is one
};

// Every make with what must have been work for the capture to be as it is, the most likely first.
std::vector<Game> gamesOf(const GameEvidence& evidence);

// A queue needs a buffer to show and one to work on. More than Android's limit is damage.
constexpr int kMinBuffers = 2;
constexpr int kMaxBuffers = 64;

// How many buffers the queue can have had: by the slots that were queued if the capture shows them,
// otherwise from the most that were ever queued, and the one on the screen, up to four.
std::vector<int> buffersOf(const LayerEvents& layer, const Scheduling& scheduling);

// When each frame could have the buffer that it was queued in, given how many there are; long ago
// if one was free all the time.
std::vector<int64_t> freeTimesNs(const LayerEvents& layer, int buffers);

// Display periods from one queued buffer to the next, in the median.
double periodsAFrame(const LayerEvents& layer, const VsyncTrack& vsyncs);
// The vsyncs for a frame that are tried: each one, and so many, two to four, as fit the frames best.
std::array<int, 2> vsyncsAFrame(const LayerEvents& layer, const VsyncTrack& vsyncs);

// The mean of what is near the median.
int64_t meanNearMedian(const std::vector<int64_t>& values);
int64_t medianWorkNs(const std::vector<FrameWork>& work);

// From each vsync to the latch of a buffer; kNoLatch where a buffer was there and none was latched.
// Where none was there it is the usual delay.
constexpr int64_t kNoLatch = INT64_MAX;
std::vector<int64_t> latchDelaysNs(const LayerEvents& layer, const VsyncTrack& vsyncs);
int64_t usualLatchDelayNs(const LayerEvents& layer, const VsyncTrack& vsyncs);

}  // namespace replay
