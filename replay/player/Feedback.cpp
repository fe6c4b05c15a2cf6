#include "replay/player/Feedback.h"

#include <algorithm>

#include "replay/findings/Statistics.h"

namespace replay {

namespace {

// From a vsync to the consume that follows it, in most cases.
int64_t usualConsumeDelayNs(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    std::vector<int64_t> delays;
    for (const ConsumeEvent& consume : layer.consumes) {
        const auto next =
                std::upper_bound(vsyncs.timesNs.begin(), vsyncs.timesNs.end(), consume.timeNs);
        if (next != vsyncs.timesNs.begin()) delays.push_back(consume.timeNs - *(next - 1));
    }
    return percentile(delays, 50);
}

}  // namespace

std::vector<int64_t> renderTimesNs(const LayerEvents& layer) {
    std::vector<int64_t> times;
    auto consume = layer.consumes.begin();
    for (size_t i = 0; i < layer.queueTimesNs.size(); ++i) {
        const int64_t queued = layer.queueTimesNs[i];
        const int64_t before = i == 0 ? queued : layer.queueTimesNs[i - 1];
        while (consume != layer.consumes.end() && consume->timeNs < before) ++consume;
        const bool freed = consume != layer.consumes.end() && consume->timeNs < queued;
        times.push_back(queued - (freed ? consume->timeNs : before));
    }
    return times;
}

std::vector<ConsumeChance> consumeChances(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    std::vector<ConsumeChance> chances;
    for (const ConsumeEvent& consume : layer.consumes) chances.push_back({consume.timeNs, true});
    const int64_t delayNs = usualConsumeDelayNs(layer, vsyncs);
    auto consume = layer.consumes.begin();
    for (const int64_t vsync : vsyncs.timesNs) {
        while (consume != layer.consumes.end() && consume->timeNs < vsync) ++consume;
        const bool taken =
                consume != layer.consumes.end() && consume->timeNs < vsync + vsyncs.periodNs;
        if (!taken) chances.push_back({vsync + delayNs, false});
    }
    std::stable_sort(
            chances.begin(), chances.end(),
            [](const ConsumeChance& a, const ConsumeChance& b) { return a.timeNs < b.timeNs; });
    return chances;
}

int mostPending(const LayerEvents& layer) {
    // A queue is fullest right before a buffer is taken, or at the end.
    int most = layer.pendingAtStart;
    for (const ConsumeEvent& consume : layer.consumes) most = std::max(most, consume.pending + 1);
    const auto atEnd = static_cast<int64_t>(layer.queueTimesNs.size()) -
                       static_cast<int64_t>(layer.consumes.size()) + layer.pendingAtStart;
    return std::max(most, static_cast<int>(atEnd));
}

std::optional<int> BufferQueue::consume(bool captured) {
    if (captured) ++mOwed;
    if (mOwed == 0 || mPending.load() == 0) return std::nullopt;
    --mOwed;
    return mPending.fetch_sub(1) - 1;
}

}  // namespace replay
