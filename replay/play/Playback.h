#pragma once

// One run inside the simulation: a compositor with three threads that calls the library. What the
// threads do is up to the kind of session.

#include <memory>
#include <string>
#include <vector>

#include "device/CindralLibrary.h"
#include "device/StandInDevice.h"
#include "replay/play/Play.h"
#include "sim/Simulation.h"

namespace replay {

// run() is the simulation's body. Each of the three functions is a thread's; each thread writes
// only its own list of events. Times are ns since the first event of the capture.
class Playback {
  public:
    Playback(const LayerEvents& layer, const VsyncTrack& vsyncs, const PlayOptions& options);
    virtual ~Playback() = default;
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    void run();
    // Throws InputError if there was no library to run. After the simulation.
    void checkLibrary() const;
    std::vector<FedEvent> takeEvents();
    // How the frames came about, if that is modelled.
    virtual std::vector<FrameRoad> takeRoads() { return {}; }

    // What the run may take before it counts as hanging.
    virtual size_t eventCount() const = 0;
    virtual int64_t lengthNs() const = 0;
    // Sees every event of the library as it happens, on the library's thread, time still absolute.
    virtual void onSeen(const device::Event&) {}

    // The capture's first event happens at this virtual time; the library is loaded shortly before.
    static constexpr int64_t kOriginNs = 1'000'000'000'000;
    static constexpr int64_t kLeadNs = 1'000'000;

  protected:
    virtual void produce() = 0;
    virtual void compose() = 0;
    virtual void beat() = 0;

    static int64_t now() { return sim::now() - kOriginNs; }
    static void waitUntil(int64_t timeNs) { sim::sleepUntil(kOriginNs + timeNs); }

    // Wait until the time and call the library. `before` runs between the two.
    template <typename Before>
    void queueAt(int64_t timeNs, Before&& before);
    void queueAt(int64_t timeNs) {
        queueAt(timeNs, [] {});
    }
    void consumeAt(int64_t timeNs, int pending);
    // Tells the library each change of the display's rate that comes by then, at its time.
    void tellRates(int64_t untilNs);
    void vsyncAt(int64_t timeNs);

    const LayerEvents& mLayer;
    const VsyncTrack& mVsyncs;
    const PlayOptions& mOptions;

  private:
    void compositor();
    void tellPeriod(int64_t timeNs, int64_t periodNs);
    template <typename Call>
    static void deliver(std::vector<FedEvent>& events, FedEvent::Kind kind, int64_t dueNs,
                        Call&& call);

    const device::ServiceLibraries mServices;
    std::unique_ptr<device::CindralLibrary> mLibrary;  // none: the calls go nowhere
    std::vector<FedEvent> mCompositorEvents;
    size_t mRatesTold = 0;  // only the compositor
    std::vector<FedEvent> mProducerEvents;
    std::vector<FedEvent> mVsyncEvents;
    std::string mError;  // why the library could not be opened
};

template <typename Call>
void Playback::deliver(std::vector<FedEvent>& events, FedEvent::Kind kind, int64_t dueNs,
                       Call&& call) {
    waitUntil(dueNs);
    FedEvent event;
    event.kind = kind;
    event.thread = sim::currentThread();
    event.dueNs = dueNs;
    event.deliveredNs = now();
    events.push_back(event);
    call();
    events.back().returnedNs = now();
}

template <typename Before>
void Playback::queueAt(int64_t timeNs, Before&& before) {
    deliver(mProducerEvents, FedEvent::Kind::kQueue, timeNs, [&] {
        before();
        if (mLibrary) mLibrary->trackBufferIncrement(mLayer.name.layer.c_str());
    });
}

std::unique_ptr<Playback> makeCapturedPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs,
                                               const PlayOptions& options);
std::unique_ptr<Playback> makeModelledPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs,
                                               const PlayOptions& options);

}  // namespace replay
