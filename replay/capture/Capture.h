#pragma once

// A capture as the replay needs it: what happened to each layer's buffers and when the vsyncs were.

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/FrameTimeline.h"
#include "replay/capture/LayerName.h"
#include "replay/capture/Marker.h"
#include "replay/capture/Scheduling.h"
#include "replay/capture/StandIns.h"
#include "replay/capture/VsyncTrack.h"

namespace replay {

struct ConsumeEvent {
    int64_t timeNs = 0;
    int pending = 0;  // buffers still queued afterwards

    bool operator==(const ConsumeEvent& other) const {
        return timeNs == other.timeNs && pending == other.pending;
    }
};

// One layer's buffers. Times are ns since the first event of the capture.
struct LayerEvents {
    LayerName name;
    std::string counter;     // where it comes from
    std::string standIn;     // what stands in for the compositor's counter; empty if nothing
    int pendingAtStart = 0;  // buffers in the queue when the capture began
    std::vector<int64_t> queueTimesNs;
    std::vector<int> queueThreads;  // on which the counter rose, in the compositor
    std::vector<ConsumeEvent> consumes;
    // Buffers that a newer one replaced before they were shown.
    std::vector<int64_t> replacedTimesNs;
};

// The counter that display frames of the frame timeline are read as.
constexpr char kDisplayFrames[] = "display frames of the frame timeline";

struct VsyncCounter {
    std::string name;
    std::vector<int64_t> timesNs;
};

struct Capture {
    std::string source;                // file name, or what the modelled session calls itself
    int64_t originNs = 0;              // the first event on the capture's own clock
    int64_t durationNs = 0;            // from the first to the last event
    std::vector<LayerEvents> layers;   // by name
    std::vector<VsyncCounter> vsyncs;  // the most telling counter first
    std::string lost;                  // what the capture lacks, one line; empty if nothing
    uint64_t outOfOrder = 0;           // lines that were older than one before them
    Scheduling scheduling;             // empty if the capture has none
    std::vector<TimelineFrame> timeline;
};

// One marker of a counter that matters makes no sense. The rest of the capture may be fine.
class DamagedMarker : public InputError {
  public:
    using InputError::InputError;
};

// Gathers the counters of a capture. Single-threaded; times are ns of the capture's own clock.
// Memory grows with the changes of the counters that matter, up to a limit beyond any real capture.
class CaptureBuilder {
  public:
    // Takes what is of use from a userspace marker ("C|123|VSYNC-sf|1"), in the order of the
    // capture. Throws DamagedMarker and leaves it out; throws InputError if the capture is too big.
    void addMarker(const Marker& marker);
    void addCounter(int64_t timeNs, std::string_view name, int64_t value, bool onMainThread = true,
                    int thread = 0);

    // The capture is written one CPU after the other by design, so that being out of order is no
    // news.
    void expectCpusInTurn() { mCpusInTurn = true; }

    // Throws InputError if nothing can be replayed from what was added.
    Capture build(const std::string& source);

  private:
    struct Sample {
        int64_t timeNs;
        int32_t value;
        bool onMainThread;  // of the process that the counter belongs to
        int32_t thread;
    };
    enum class Use { kLayer, kStandIn, kVsync, kNone };
    struct Counter {
        Use use;
        std::vector<Sample> samples;
    };

    static Use useOf(std::string_view name);
    void noteTime(int64_t timeNs);
    void noteOther(std::string_view name);
    std::vector<Sample> sorted(const std::vector<Sample>& samples) const;
    LayerEvents layerEvents(const std::string& name, const Counter& counter) const;
    VsyncCounter vsyncCounter(const std::string& name, const Counter& counter) const;
    std::vector<LayerEvents> layers(Use use) const;
    std::vector<LayerEvents> layersOfSlices();
    void addSlices(const SlicedLayer& layer);
    std::vector<VsyncCounter> vsyncs() const;
    [[noreturn]] void failWithoutLayers(const std::string& source) const;

    std::map<std::string, Counter, std::less<>> mCounters;  // those that matter
    SliceQueues mSlices;
    // A few that do not, for the message: those that come nearest first.
    std::array<std::vector<std::string>, 3> mOtherCounters;
    size_t mSampleCount = 0;  // of all counters that matter
    bool mCpusInTurn = false;
    int64_t mFirstTimeNs = INT64_MAX;
    int64_t mLastTimeNs = INT64_MIN;
    uint64_t mOutOfOrder = 0;
};

// The vsyncs to play. `refreshHz` is what the user says; needed when the capture does not tell, and
// checked against it when it does. Throws InputError.
VsyncTrack vsyncTrack(const Capture& capture, std::optional<double> refreshHz);

}  // namespace replay
