// Everything happens as captured, whatever the library does. A thread that the library holds
// delivers what it missed the moment it is let go.

#include "replay/play/Playback.h"

namespace replay {

namespace {

class CapturedPlayback : public Playback {
  public:
    using Playback::Playback;

    size_t eventCount() const override {
        return mLayer.queueTimesNs.size() + mLayer.consumes.size() + mVsyncs.timesNs.size();
    }
    int64_t lengthNs() const override {
        return mVsyncs.timesNs.empty() ? 0 : mVsyncs.timesNs.back();
    }

  private:
    void produce() override {
        for (const int64_t timeNs : mLayer.queueTimesNs) queueAt(timeNs);
    }
    void compose() override {
        for (const ConsumeEvent& event : mLayer.consumes) consumeAt(event.timeNs, event.pending);
        tellRates(lengthNs());
    }
    void beat() override {
        for (const int64_t timeNs : mVsyncs.timesNs) vsyncAt(timeNs);
    }
};

}  // namespace

std::unique_ptr<Playback> makeCapturedPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs,
                                               const PlayOptions& options) {
    return std::make_unique<CapturedPlayback>(layer, vsyncs, options);
}

}  // namespace replay
