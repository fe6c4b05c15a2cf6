#include "replay/play/RunCapture.h"

namespace replay {

namespace {

constexpr char kVsyncCounter[] = "VSYNC-sf";
constexpr int64_t kNsPerUs = 1'000;
// Where the clock of a device might be; also, no event may come before time 0.
constexpr int64_t kStartNs = 100'000'000'000;

int64_t wholeMicroseconds(int64_t timeNs) {
    return (timeNs + kStartNs) / kNsPerUs * kNsPerUs;
}

}  // namespace

std::vector<CounterSample> samplesOf(const Run& run, const std::string& layerCounter) {
    using Origin = CounterSample::Origin;
    std::vector<CounterSample> samples;
    samples.push_back({wholeMicroseconds(0), Origin::kProducer, layerCounter, 0});
    int64_t pending = 0;
    int64_t vsyncLevel = 0;
    for (const FedEvent& event : run.fed) {
        const int64_t timeNs = wholeMicroseconds(event.deliveredNs);
        if (event.kind == FedEvent::Kind::kQueue) {
            samples.push_back({timeNs, Origin::kProducer, layerCounter, ++pending});
        } else if (event.kind == FedEvent::Kind::kConsume) {
            pending = event.value;
            samples.push_back({timeNs, Origin::kCompositor, layerCounter, pending});
        } else if (event.kind == FedEvent::Kind::kVsync) {
            vsyncLevel = 1 - vsyncLevel;
            samples.push_back({timeNs, Origin::kVsync, kVsyncCounter, vsyncLevel});
        }
    }
    return samples;
}

}  // namespace replay
