#include "replay/capture/StandIns.h"

#include <algorithm>
#include <charconv>

#include "replay/base/Text.h"
#include "replay/capture/LayerName.h"

namespace replay {

namespace {

// Two hours at 120 Hz of a few layers.
constexpr size_t kMaxSlices = 4'000'000;
constexpr size_t kMaxLayers = 256;
// The layers of one composition are latched within less.
constexpr int64_t kOneCompositionNs = 4'000'000;

}  // namespace

void SliceQueues::addMarker(const Marker& marker) {
    const std::string_view text = marker.payload;
    if (!startsWith(text, "B|") || mCount >= kMaxSlices) return;
    int process = 0;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), process);
    if (error != std::errc() || end == text.data() + text.size() || *end != '|') return;
    const std::string_view name = text.substr(static_cast<size_t>(end - text.data()) + 1);
    const std::string_view layer = name.substr(0, name.find(": "));
    std::vector<int64_t>* times = nullptr;
    if (startsWith(name, "latchBuffer") && process == marker.thread) {
        mCompositor = process;
        times = &mLatches;
    } else if (name == "queueBuffer" && mQueuing.size() < kMaxLayers) {
        mQueuing[marker.thread].process = process;
        times = &mQueuing[marker.thread].queueTimesNs;
    } else if (layer.size() < name.size() && mNamed.size() < kMaxLayers && layerOfCounter(layer)) {
        times = &mNamed.try_emplace(std::string(layer)).first->second;
    }
    if (times == nullptr) return;
    ++mCount;
    times->push_back(marker.timeNs);
}

std::vector<SlicedLayer> SliceQueues::layers() const {
    std::vector<int64_t> latches = mLatches;
    std::sort(latches.begin(), latches.end());
    std::vector<int64_t> compositions;
    for (const int64_t timeNs : latches) {
        const bool isNext =
                compositions.empty() || timeNs - compositions.back() > kOneCompositionNs;
        if (isNext) compositions.push_back(timeNs);
    }
    std::vector<SlicedLayer> layers;
    for (const auto& [name, times] : mNamed) layers.push_back({name, times, compositions});
    if (!layers.empty() || compositions.empty()) return layers;
    for (const auto& [number, thread] : mQueuing) {
        if (thread.process == mCompositor) continue;
        const std::string name =
                format("SurfaceView - process-%d/thread-%d#0", thread.process, number);
        layers.push_back({name, thread.queueTimesNs, compositions});
    }
    return layers;
}

}  // namespace replay
