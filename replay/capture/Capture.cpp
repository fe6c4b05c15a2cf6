#include "replay/capture/Capture.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "replay/Error.h"

namespace replay {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
// A buffer queue has this many slots; no device shows more pending buffers.
constexpr int64_t kMaxPending = 64;
// Vsyncs are made up for the whole time, so a damaged timestamp must not stretch it at will.
constexpr int64_t kMaxCaptureSeconds = 2 * 60 * 60;
constexpr size_t kMaxNamedCounters = 4;
constexpr double kMinRefreshHz = 20;
constexpr double kMaxRefreshHz = 500;
constexpr double kRefreshTolerance = 0.02;

constexpr std::string_view kVsyncCounters[] = {"VSYNC-sf", "VSYNC-app", "VSYNC-appSf"};
constexpr std::string_view kHardwareVsync = "HW_VSYNC";
// Shows whether the hardware's vsyncs are switched on, not the vsyncs.
constexpr std::string_view kHardwareVsyncSwitch = "HW_VSYNC_ON";

constexpr char kWanted[] =
        "\"SurfaceView - PACKAGE/ACTIVITY#N\" or \"BufferTX - "
        "SurfaceView[PACKAGE/ACTIVITY](BLAST)#N\"";

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// How little the counter tells about the display's beat, best first; nothing if it is no vsync
// counter.
std::optional<size_t> vsyncRank(std::string_view name) {
    const auto* found = std::find(std::begin(kVsyncCounters), std::end(kVsyncCounters), name);
    const auto rank = static_cast<size_t>(found - std::begin(kVsyncCounters));
    if (found != std::end(kVsyncCounters)) return rank;
    if (startsWith(name, kHardwareVsync) && !startsWith(name, kHardwareVsyncSwitch)) return rank;
    return std::nullopt;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + inQuotes(name);
    return text.empty() ? "none" : text;
}

std::string formatted(const char* format, double first, double second) {
    char text[128];
    std::snprintf(text, sizeof(text), format, first, second);
    return text;
}

double rateOf(int64_t periodNs) {
    return static_cast<double>(kNsPerSecond) / static_cast<double>(periodNs);
}

bool isPlausible(int64_t periodNs) {
    return rateOf(periodNs) >= kMinRefreshHz && rateOf(periodNs) <= kMaxRefreshHz;
}

void checkRefresh(int64_t measuredNs, const std::string& source, double refreshHz) {
    const double measuredHz = rateOf(measuredNs);
    if (std::abs(measuredHz - refreshHz) <= kRefreshTolerance * measuredHz) return;
    throw InputError(formatted("--refresh %g: the capture shows %.2f Hz", refreshHz, measuredHz) +
                     " (" + source + "); leave --refresh out to use that");
}

}  // namespace

CaptureBuilder::Use CaptureBuilder::useOf(const std::string& name) {
    if (vsyncRank(name)) return Use::kVsync;
    return layerOfCounter(name) ? Use::kLayer : Use::kNone;
}

void CaptureBuilder::addMarker(int64_t timeNs, std::string_view payload) {
    if (!startsWith(payload, "C|")) return;
    const size_t nameStart = payload.find('|', 2);
    if (nameStart == std::string_view::npos) return;
    const size_t nameEnd = payload.find('|', nameStart + 1);
    const std::string name(payload.substr(nameStart + 1, nameEnd - nameStart - 1));
    // Browsers append a category as one more field.
    std::string_view text = nameEnd == std::string_view::npos ? "" : payload.substr(nameEnd + 1);
    text = text.substr(0, text.find_first_of("| \n"));
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc() && end == text.data() + text.size())
        return addCounter(timeNs, name, value);
    if (useOf(name) == Use::kNone) return;
    throw InputError("counter " + inQuotes(name) + " has no whole number: " +
                     inQuotes(std::string(text)) + "; remove the line or capture again");
}

void CaptureBuilder::addCounter(int64_t timeNs, const std::string& name, int64_t value) {
    const auto known = mSamples.find(name);
    const Use use = useOf(name);
    if (use == Use::kNone) {
        noteOther(name);
        return;
    }
    if (use == Use::kLayer && (value < 0 || value > kMaxPending)) {
        throw InputError("counter " + inQuotes(name) + " is " + std::to_string(value) +
                         ", but a queue holds 0 to " + std::to_string(kMaxPending) +
                         " buffers; remove the line or capture again");
    }
    noteTime(timeNs);
    auto& samples = known == mSamples.end() ? mSamples[name] : known->second;
    samples.push_back({timeNs, value});
}

void CaptureBuilder::noteOther(const std::string& name) {
    if (mOtherCounters.size() > kMaxNamedCounters) return;
    const bool isNew =
            std::find(mOtherCounters.begin(), mOtherCounters.end(), name) == mOtherCounters.end();
    if (isNew) mOtherCounters.push_back(name);
}

void CaptureBuilder::noteTime(int64_t timeNs) {
    if (timeNs < mLastTimeNs) ++mOutOfOrder;
    mFirstTimeNs = std::min(mFirstTimeNs, timeNs);
    mLastTimeNs = std::max(mLastTimeNs, timeNs);
    if (mLastTimeNs - mFirstTimeNs <= kMaxCaptureSeconds * kNsPerSecond) return;
    throw InputError("the counters span more than " + std::to_string(kMaxCaptureSeconds / 3600) +
                     " hours; cut the capture to the part of interest");
}

// Captures are merged from one buffer per CPU, so a few lines usually come late.
std::vector<CaptureBuilder::Sample> CaptureBuilder::sorted(const std::string& counter) const {
    std::vector<Sample> samples = mSamples.at(counter);
    std::stable_sort(samples.begin(), samples.end(),
                     [](const Sample& a, const Sample& b) { return a.timeNs < b.timeNs; });
    for (Sample& sample : samples) sample.timeNs -= mFirstTimeNs;
    return samples;
}

LayerEvents CaptureBuilder::layerEvents(const std::string& counter) const {
    LayerEvents events;
    events.counter = counter;
    events.name = *layerOfCounter(counter);
    const std::vector<Sample> samples = sorted(counter);
    // The capture may begin with buffers in the queue: what was there at the first sample is no
    // event.
    int64_t level = samples.front().value;
    events.pendingAtStart = static_cast<int>(level);
    for (const Sample& sample : samples) {
        for (; level < sample.value; ++level) events.queueTimesNs.push_back(sample.timeNs);
        while (level > sample.value) {
            --level;
            events.consumes.push_back({sample.timeNs, static_cast<int>(level)});
        }
    }
    return events;
}

// Every toggle is a vsync, the first one seen too: tracing shows the counter only when it changes.
VsyncCounter CaptureBuilder::vsyncCounter(const std::string& counter) const {
    VsyncCounter vsync{counter, {}};
    std::optional<int64_t> level;
    for (const Sample& sample : sorted(counter)) {
        if (sample.value != level) vsync.timesNs.push_back(sample.timeNs);
        level = sample.value;
    }
    return vsync;
}

std::vector<LayerEvents> CaptureBuilder::layers() const {
    std::map<std::string, LayerEvents> layers;
    for (const auto& [counter, samples] : mSamples) {
        if (useOf(counter) != Use::kLayer) continue;
        LayerEvents events = layerEvents(counter);
        // Some releases show one layer under two counters: the fuller one counts.
        const auto known = layers.find(events.name.layer);
        const size_t knownCount = known == layers.end() ? 0 : known->second.queueTimesNs.size();
        if (events.queueTimesNs.size() > knownCount) layers[events.name.layer] = std::move(events);
    }
    std::vector<LayerEvents> result;
    for (auto& [name, events] : layers) result.push_back(std::move(events));
    return result;
}

std::vector<VsyncCounter> CaptureBuilder::vsyncs() const {
    std::vector<VsyncCounter> result;
    for (const auto& [counter, samples] : mSamples) {
        if (useOf(counter) == Use::kVsync) result.push_back(vsyncCounter(counter));
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const VsyncCounter& a, const VsyncCounter& b) {
                         return vsyncRank(a.name) < vsyncRank(b.name);
                     });
    return result;
}

void CaptureBuilder::failWithoutLayers(const std::string& source) const {
    std::vector<std::string> found;
    for (const auto& [name, samples] : mSamples) found.push_back(name);
    found.insert(found.end(), mOtherCounters.begin(), mOtherCounters.end());
    const bool more = found.size() > kMaxNamedCounters;
    if (more) found.resize(kMaxNamedCounters);
    throw InputError(source + ": no layer queues buffers in it; looked for counters named " +
                     kWanted + " that rise, found " + joined(found) + (more ? " and more" : "") +
                     "; capture a running game with the atrace categories gfx and view");
}

Capture CaptureBuilder::build(const std::string& source) const {
    Capture capture;
    capture.source = source;
    capture.layers = layers();
    if (capture.layers.empty()) failWithoutLayers(source);
    capture.vsyncs = vsyncs();
    capture.originNs = mFirstTimeNs;
    capture.durationNs = mLastTimeNs - mFirstTimeNs;
    capture.outOfOrder = mOutOfOrder;
    return capture;
}

VsyncTrack vsyncTrack(const Capture& capture, std::optional<double> refreshHz) {
    if (refreshHz && !(*refreshHz >= kMinRefreshHz && *refreshHz <= kMaxRefreshHz)) {
        throw InputError(
                formatted("--refresh: give a rate from %g to %g Hz", kMinRefreshHz, kMaxRefreshHz));
    }
    for (const VsyncCounter& counter : capture.vsyncs) {
        const std::optional<int64_t> measured = measurePeriodNs(counter.timesNs);
        if (!measured || !isPlausible(*measured)) continue;
        if (refreshHz) checkRefresh(*measured, counter.name, *refreshHz);
        VsyncTrack track{*measured, {}, counter.name, 0};
        track.timesNs = continueVsyncs(counter.timesNs, *measured, 0, capture.durationNs);
        track.continued = track.timesNs.size() - counter.timesNs.size();
        return track;
    }
    if (!refreshHz) {
        throw InputError(capture.source +
                         ": the vsync counters (VSYNC-sf, VSYNC-app, VSYNC-appSf, HW_VSYNC_*) do "
                         "not tell the "
                         "display's rate; say it with --refresh HZ");
    }
    VsyncTrack track{
            std::llround(static_cast<double>(kNsPerSecond) / *refreshHz), {}, "--refresh", 0};
    track.timesNs = continueVsyncs({}, track.periodNs, 0, capture.durationNs);
    track.continued = track.timesNs.size();
    return track;
}

}  // namespace replay
