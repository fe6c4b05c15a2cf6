#include "replay/findings/Reproduction.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
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

Reproduction::Figures reproductionFigures(const LayerEvents& layer, const Refresh& refresh,
                                          const Run& run) {
    Findings findings;
    findings.refresh = refresh;
    addFrames(findings, run, layer.pendingAtStart);
    Reproduction::Figures figures;
    figures.framesPerSecond = replay::figures()[figureNamed("frames_per_second")].of(findings);
    figures.lateFrames = static_cast<int64_t>(findings.late[0]);
    figures.stutters = static_cast<int64_t>(findings.stutters.size());
    figures.latencyP50Ns = findings.latencyNs.p50;
    return figures;
}

}  // namespace replay
