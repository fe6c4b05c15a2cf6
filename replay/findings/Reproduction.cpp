#include "replay/findings/Reproduction.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Statistics.h"
#include "replay/base/Text.h"
#include "replay/findings/FrameFindings.h"

namespace replay {

namespace {

constexpr double kRateTolerance = 0.01;
constexpr double kCountTolerance = 0.1;
constexpr double kCountSlack = 3;
constexpr double kLatencyToleranceNs = 1'000'000;

// In tolerances.
double rateMiss(const Reproduction& r) {
    return std::abs(r.modelled.framesPerSecond - r.captured.framesPerSecond) /
           std::max(kRateTolerance * r.captured.framesPerSecond, 1e-9);
}

double countMiss(int64_t modelled, int64_t captured) {
    return static_cast<double>(std::abs(modelled - captured)) /
           std::max(kCountSlack, kCountTolerance * static_cast<double>(captured));
}

double latencyMiss(const Reproduction& r) {
    return static_cast<double>(std::abs(r.modelled.latencyP50Ns - r.captured.latencyP50Ns)) /
           kLatencyToleranceNs;
}

// From queue to latch. The count of pending buffers says which one was latched.
std::vector<int64_t> latenciesNs(const LayerEvents& events) {
    const std::vector<int64_t>& queued = events.queueTimesNs;
    std::vector<int64_t> latencies(queued.size(), -1);
    size_t count = 0;
    for (const ConsumeEvent& latch : events.consumes) {
        while (count < queued.size() && queued[count] < latch.timeNs) ++count;
        const auto pending = static_cast<size_t>(latch.pending);
        if (count <= pending || latencies[count - pending - 1] >= 0) continue;
        latencies[count - pending - 1] = latch.timeNs - queued[count - pending - 1];
    }
    latencies.erase(std::remove(latencies.begin(), latencies.end(), -1), latencies.end());
    return latencies;
}

}  // namespace

std::vector<std::string> Reproduction::misses() const {
    std::vector<std::string> all;
    if (rateMiss(*this) > 1) all.emplace_back("frames per second");
    if (countMiss(modelled.lateFrames, captured.lateFrames) > 1) all.emplace_back("late frames");
    if (countMiss(modelled.stutters, captured.stutters) > 1) all.emplace_back("stutters");
    if (latencyMiss(*this) > 1) all.emplace_back("latency");
    return all;
}

double Reproduction::distance() const {
    return std::max({rateMiss(*this), countMiss(modelled.lateFrames, captured.lateFrames),
                     countMiss(modelled.stutters, captured.stutters), latencyMiss(*this)});
}

std::string Reproduction::describe() const {
    return format(
            "%.1f of %.1f frames/s, %lld of %lld late, %lld of %lld stutters, "
            "latency %.1f of %.1f ms",
            modelled.framesPerSecond, captured.framesPerSecond,
            static_cast<long long>(modelled.lateFrames),
            static_cast<long long>(captured.lateFrames), static_cast<long long>(modelled.stutters),
            static_cast<long long>(captured.stutters), toMs(modelled.latencyP50Ns),
            toMs(captured.latencyP50Ns));
}

Reproduction::Figures reproductionFigures(const LayerEvents& events, const Refresh& refresh) {
    const std::vector<int64_t>& queued = events.queueTimesNs;
    const std::vector<ConsumeEvent>& latches = events.consumes;
    Reproduction::Figures figures;
    const auto playedNs = static_cast<double>(queued.empty() ? 0 : queued.back() - queued.front());
    if (playedNs > 0)
        figures.framesPerSecond = static_cast<double>(queued.size() - 1) * 1e9 / playedNs;
    for (size_t i = 1; i < queued.size(); ++i)
        if (lateNs(refresh, queued[i - 1], queued[i]) > 0) ++figures.lateFrames;
    for (size_t i = 1; i < latches.size(); ++i)
        if (vsyncsStood(refresh, latches[i - 1].timeNs, latches[i].timeNs) >= kStutterVsyncs)
            ++figures.stutters;
    figures.latencyP50Ns = percentile(latenciesNs(events), 50);
    return figures;
}

}  // namespace replay
