#include "replay/findings/Figures.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr auto kLess = Figure::Better::kLess;
constexpr auto kMore = Figure::Better::kMore;
constexpr auto kNeither = Figure::Better::kNeither;

double count(size_t number) {
    return static_cast<double>(number);
}

// What the library tells only with its debug switch on.
double ifTold(const Findings& findings, double value) {
    const bool known = findings.debugSeen || !findings.withLibrary;
    return known ? value : std::numeric_limits<double>::quiet_NaN();
}

double percentOf(size_t part, size_t whole) {
    return whole == 0 ? 0 : 100 * count(part) / count(whole);
}

double playedNs(const Findings& f) {
    return f.frames.empty()
                   ? 0.0
                   : static_cast<double>(f.frames.back().queuedNs - f.frames.front().queuedNs);
}

double framesPerSecond(const Findings& f) {
    return playedNs(f) <= 0 ? 0 : count(f.frames.size() - 1) * 1e9 / playedNs(f);
}

// Over the time the regulator was on, as it is without meaning otherwise.
double meanHeadroomMs(const Findings& f) {
    double sum = 0;
    int64_t weightNs = 0;
    size_t next = 0;
    double value = 0;
    for (const auto& [begin, end] : f.headroomRegulator.spans) {
        int64_t now = begin;
        while (now < end) {
            while (next < f.headroomNs.size() && f.headroomNs[next].timeNs <= now) {
                value = f.headroomNs[next++].value;
            }
            const bool more = next < f.headroomNs.size() && f.headroomNs[next].timeNs < end;
            const int64_t until = more ? f.headroomNs[next].timeNs : end;
            sum += value * static_cast<double>(until - now);
            weightNs += until - now;
            now = until;
        }
    }
    return weightNs == 0 ? 0 : sum / static_cast<double>(weightNs) / 1e6;
}

}  // namespace

const std::vector<Figure>& figures() {
    using F = Findings;
    static const std::vector<Figure> all = {
            {"frames", "frames", "", kNeither, [](const F& f) { return count(f.frames.size()); }},
            {"played_s", "time to play them", "s", kLess,
             [](const F& f) { return playedNs(f) / 1e9; }},
            {"frames_per_second", "frames per second", "/s", kMore, framesPerSecond},
            {"shown_in_time_percent", "shown in time", "%", kMore,
             [](const F& f) { return percentOf(f.screen.inTime, f.frames.size()); }},
            {"repeated_vsyncs", "vsyncs of an old picture", "", kLess,
             [](const F& f) { return count(f.screen.repeated); }},
            {"low_1_percent_fps", "1 % low", "/s", kMore,
             [](const F& f) { return f.screen.onePercentLow; }},
            {"low_0_1_percent_fps", "0.1 % low", "/s", kMore,
             [](const F& f) { return f.screen.tenthPercentLow; }},
            {"animation_error_mean_ms", "animation error, mean", "ms", kLess,
             [](const F& f) { return f.screen.animationErrorNs.mean() / 1e6; }},
            {"animation_error_p99_ms", "animation error p99", "ms", kLess,
             [](const F& f) { return toMs(f.screen.animationErrorNs.p99); }},
            {"late_frames", "late frames", "", kLess, [](const F& f) { return count(f.late[0]); }},
            {"late_frames_over_1_vsync", "late by > 1 vsync", "", kLess,
             [](const F& f) { return count(f.late[1]); }},
            {"late_frames_over_2_vsyncs", "late by > 2 vsyncs", "", kLess,
             [](const F& f) { return count(f.late[2]); }},
            {"stutters", "stutters", "", kLess,
             [](const F& f) { return count(f.stutters.size()); }},
            {"frame_time_p50_ms", "frame time p50", "ms", kLess,
             [](const F& f) { return toMs(f.frameTimeNs.p50); }},
            {"frame_time_p90_ms", "frame time p90", "ms", kLess,
             [](const F& f) { return toMs(f.frameTimeNs.p90); }},
            {"frame_time_p95_ms", "frame time p95", "ms", kLess,
             [](const F& f) { return toMs(f.frameTimeNs.p95); }},
            {"frame_time_p99_ms", "frame time p99", "ms", kLess,
             [](const F& f) { return toMs(f.frameTimeNs.p99); }},
            {"frame_time_max_ms", "frame time max", "ms", kLess,
             [](const F& f) { return toMs(f.frameTimeNs.max); }},
            {"render_time_p50_ms", "render time p50", "ms", kNeither,
             [](const F& f) { return toMs(f.renderTimeNs.p50); }},
            {"render_time_p99_ms", "render time p99", "ms", kNeither,
             [](const F& f) { return toMs(f.renderTimeNs.p99); }},
            {"zero_render_times", "render times of nothing", "", kNeither,
             [](const F& f) { return count(f.zeroRenderTimes); }},
            {"latency_p50_ms", "queue to latch p50", "ms", kLess,
             [](const F& f) { return toMs(f.latencyNs.p50); }},
            {"latency_p95_ms", "queue to latch p95", "ms", kLess,
             [](const F& f) { return toMs(f.latencyNs.p95); }},
            {"latency_p99_ms", "queue to latch p99", "ms", kLess,
             [](const F& f) { return toMs(f.latencyNs.p99); }},
            {"latency_max_ms", "queue to latch max", "ms", kLess,
             [](const F& f) { return toMs(f.latencyNs.max); }},
            {"frames_held", "frames held", "", kNeither,
             [](const F& f) { return count(f.framesHeld); }},
            {"held_p50_ms", "held p50", "ms", kNeither,
             [](const F& f) { return toMs(f.heldNs.p50); }},
            {"held_p95_ms", "held p95", "ms", kNeither,
             [](const F& f) { return toMs(f.heldNs.p95); }},
            {"held_p99_ms", "held p99", "ms", kNeither,
             [](const F& f) { return toMs(f.heldNs.p99); }},
            {"held_max_ms", "held max", "ms", kLess, [](const F& f) { return toMs(f.heldNs.max); }},
            {"held_total_s", "held in all", "s", kNeither,
             [](const F& f) { return toSeconds(f.heldNs.total); }},
            {"boosts_checkpoint_1", "boosts, checkpoint 1", "", kLess,
             [](const F& f) { return count(f.boostsByCheckpoint[0]); }},
            {"boosts_checkpoint_2", "boosts, checkpoint 2", "", kLess,
             [](const F& f) { return count(f.boostsByCheckpoint[1]); }},
            {"boosts_checkpoint_3", "boosts, checkpoint 3", "", kLess,
             [](const F& f) { return count(f.boostsByCheckpoint[2]); }},
            {"boosted_s", "time boosted", "s", kLess,
             [](const F& f) { return toSeconds(f.boostedNs); }},
            {"releases", "boost releases", "", kNeither,
             [](const F& f) { return count(f.releases.size()); }},
            {"boosts_never_released", "boosts never released", "", kNeither,
             [](const F& f) { return count(f.boostsNeverReleased); }},
            {"long_boosts_never_released", "long boosts never released", "", kLess,
             [](const F& f) { return count(f.longBoostsNeverReleased); }},
            {"negative_boosts", "negative boosts", "", kNeither,
             [](const F& f) { return count(f.negativeBoosts.size()); }},
            {"negative_releases", "negative releases", "", kNeither,
             [](const F& f) { return count(f.negativeReleases.size()); }},
            {"negative_s", "time lowered", "s", kMore,
             [](const F& f) { return toSeconds(f.loweredNs); }},
            {"negative_mean_strength_percent", "mean strength while lowered", "%", kNeither,
             [](const F& f) { return f.meanStrength; }},
            {"pl_off_s", "PL off", "s", kMore, [](const F& f) { return toSeconds(f.plOffNs); }},
            {"core_control_off_s", "core control off", "s", kMore,
             [](const F& f) { return toSeconds(f.coreControlOffNs); }},
            {"frame_regulator_on_s", "frame regulator on", "s", kNeither,
             [](const F& f) { return ifTold(f, toSeconds(f.frameRegulator.onNs)); }},
            {"frame_regulator_switches", "frame regulator switched", "", kNeither,
             [](const F& f) { return ifTold(f, count(f.frameRegulator.switches.size())); }},
            {"headroom_regulator_on_s", "headroom regulator on", "s", kNeither,
             [](const F& f) { return ifTold(f, toSeconds(f.headroomRegulator.onNs)); }},
            {"headroom_regulator_switches", "headroom regulator switched", "", kNeither,
             [](const F& f) { return ifTold(f, count(f.headroomRegulator.switches.size())); }},
            {"headroom_mean_ms", "mean headroom while on", "ms", kNeither,
             [](const F& f) { return ifTold(f, meanHeadroomMs(f)); }},
            {"pingpongs", "ping-pongs", "", kLess,
             [](const F& f) { return ifTold(f, count(f.pingpongs.size())); }},
            {"unknown_calls", "unknown calls", "", kNeither,
             [](const F& f) { return count(f.unknownCalls); }},
    };
    return all;
}

size_t figureNamed(const std::string& name) {
    const auto found = std::find_if(figures().begin(), figures().end(),
                                    [&](const Figure& figure) { return figure.name == name; });
    if (found == figures().end()) throw std::logic_error("no figure " + name);
    return static_cast<size_t>(found - figures().begin());
}

std::vector<double> valuesOf(const Findings& findings) {
    std::vector<double> values;
    for (const Figure& figure : figures()) values.push_back(figure.of(findings));
    return values;
}

}  // namespace replay
