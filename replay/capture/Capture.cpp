#include "replay/capture/Capture.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
// A buffer queue has this many slots; no device shows more pending buffers.
constexpr int64_t kMaxPending = 64;
// Vsyncs are made up for the whole time, so a damaged timestamp must not stretch it at will.
constexpr int64_t kMaxCaptureSeconds = 2 * 60 * 60;
// Two hours of the fastest display need a third of it, with every counter there is.
constexpr size_t kMaxSamples = 8 * 1024 * 1024;
// Each layer that an application opens is a counter of its own.
constexpr size_t kMaxCounters = 4096;
constexpr size_t kMaxNamedCounters = 4;
constexpr double kMinRefreshHz = 20;
constexpr double kMaxRefreshHz = 500;
constexpr double kRefreshTolerance = 0.02;
// Hardware vsyncs come in bursts of a few.
constexpr int kBeatsThatTell = 3;

constexpr std::string_view kVsyncCounters[] = {"VSYNC-sf", "VSYNC", "VSYNC-app", "VSYNC-appSf",
                                               kDisplayFrames};
constexpr size_t kMaxVsyncChars = 256;  // a display's number follows
constexpr std::string_view kHardwareVsync = "HW_VSYNC";
// Shows whether the hardware's vsyncs are switched on, not the vsyncs.
constexpr std::string_view kHardwareVsyncSwitch = "HW_VSYNC_ON";

constexpr char kWanted[] =
        "\"SurfaceView - PACKAGE/ACTIVITY#N\" or \"BufferTX - "
        "SurfaceView[PACKAGE/ACTIVITY](BLAST)#N\"";

// How little the counter tells about the display's beat, best first; nothing if it is no vsync
// counter.
std::optional<size_t> vsyncRank(std::string_view name) {
    const auto* found = std::find(std::begin(kVsyncCounters), std::end(kVsyncCounters), name);
    const auto rank = static_cast<size_t>(found - std::begin(kVsyncCounters));
    if (found != std::end(kVsyncCounters)) return rank;
    if (name.size() > kMaxVsyncChars) return std::nullopt;
    if (startsWith(name, kHardwareVsync) && !startsWith(name, kHardwareVsyncSwitch)) return rank;
    return std::nullopt;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + inQuotes(name);
    return text.empty() ? "none" : text;
}

// "C|612|...", written by thread 612. A marker that names no process is believed.
bool isByMainThread(const Marker& marker) {
    const std::string_view text = marker.payload.substr(2);
    int process = 0;
    return !toNumber(text.substr(0, text.find('|')), process) || process == 0 ||
           process == marker.thread;
}

bool isPlausible(int64_t periodNs) {
    return toHertz(periodNs) >= kMinRefreshHz && toHertz(periodNs) <= kMaxRefreshHz;
}

// The other counters may show vsyncs where this one has none.
std::optional<Refresh> refreshOf(const Capture& capture, const VsyncCounter& counter) {
    return measureRefresh(counter.timesNs, [&](int64_t beginNs, int64_t endNs, int64_t periodNs) {
        for (const VsyncCounter& other : capture.vsyncs) {
            int seen = 0;
            for (size_t i = 1; i < other.timesNs.size(); ++i) {
                const int64_t intervalNs = other.timesNs[i] - other.timesNs[i - 1];
                const bool within = other.timesNs[i - 1] >= beginNs && other.timesNs[i] <= endNs;
                const bool isBeat = 5 * std::abs(intervalNs - periodNs) < periodNs;
                if (within && isBeat && ++seen >= kBeatsThatTell) return true;
            }
        }
        return false;
    });
}

// A compositor that has something to do at every second vsync only shows that in its own counter;
// another one may show the display's beat. Says which, if so.
std::string takeFasterBeat(Refresh& refresh, const Capture& capture) {
    constexpr int64_t kHundredth = 100;
    for (const VsyncCounter& other : capture.vsyncs) {
        const int64_t periodNs = measurePeriodNs(other.timesNs).value_or(refresh.periodNs);
        const int64_t count = (refresh.periodNs + periodNs / 2) / periodNs;
        const int64_t missNs = std::abs(refresh.periodNs - count * periodNs);
        if (count < 2 || missNs * kHundredth > refresh.periodNs || !isPlausible(periodNs)) continue;
        refresh.periodNs = periodNs;
        return ", at the rate of " + other.name;
    }
    return "";
}

// How far a counter's name is from that of a layer with a queue: 0 for the queues of other windows,
// 1 for what is numbered as layers are, 2 for anything else.
size_t distanceFromLayer(std::string_view name) {
    for (const char* near : {"BufferTX - ", "QueuedBuffer - ", "SurfaceView"}) {
        if (startsWith(name, near)) return 0;
    }
    const size_t hash = name.find_last_of('#');
    const bool isNumbered =
            hash != std::string_view::npos && hash + 1 < name.size() &&
            name.find_first_not_of("0123456789", hash + 1) == std::string_view::npos;
    return isNumbered ? 1 : 2;
}

[[noreturn]] void failAsTooBig() {
    throw InputError("more than " + std::to_string(kMaxSamples) + " events or " +
                     std::to_string(kMaxCounters) +
                     " layers; cut the capture to the part of interest");
}

std::string namesOf(const std::vector<VsyncCounter>& counters) {
    std::vector<std::string> names;
    for (const VsyncCounter& counter : counters) names.push_back(counter.name);
    const bool more = names.size() > kMaxNamedCounters;
    if (more) names.resize(kMaxNamedCounters);
    return joined(names) + (more ? " and more" : "");
}

void checkRefresh(const Refresh& measured, const std::string& source, double refreshHz) {
    const auto isMeant = [&](int64_t periodNs) {
        return std::abs(toHertz(periodNs) - refreshHz) <= kRefreshTolerance * toHertz(periodNs);
    };
    if (isMeant(measured.periodNs)) return;
    for (const RateChange& change : measured.changes) {
        if (isMeant(change.periodNs)) return;
    }
    throw InputError(format("--refresh %g: the capture shows %.2f Hz", refreshHz,
                            toHertz(measured.periodNs)) +
                     " (" + source + "); leave --refresh out to use that");
}

}  // namespace

CaptureBuilder::Use CaptureBuilder::useOf(std::string_view name) {
    if (vsyncRank(name)) return Use::kVsync;
    if (layerOfCounter(name)) return Use::kLayer;
    return layerOfQueuedBuffer(name) ? Use::kStandIn : Use::kNone;
}

void CaptureBuilder::addMarker(const Marker& marker) {
    const std::string_view payload = marker.payload;
    if (!startsWith(payload, "C|")) return mSlices.addMarker(marker);
    const size_t nameStart = payload.find('|', 2);
    if (nameStart == std::string_view::npos) return;
    const size_t nameEnd = payload.find('|', nameStart + 1);
    const std::string_view name = payload.substr(nameStart + 1, nameEnd - nameStart - 1);
    // Browsers append a category as one more field.
    std::string_view text = nameEnd == std::string_view::npos ? "" : payload.substr(nameEnd + 1);
    text = text.substr(0, text.find_first_of("| "));
    int64_t value = 0;
    if (toNumber(text, value))
        return addCounter(marker.timeNs, name, value, isByMainThread(marker), marker.thread);
    if (useOf(name) == Use::kNone) return;
    throw DamagedMarker("counter " + inQuotes(std::string(name)) +
                        " has no whole number: " + inQuotes(std::string(text)));
}

void CaptureBuilder::addCounter(int64_t timeNs, std::string_view name, int64_t value,
                                bool onMainThread, int thread) {
    auto known = mCounters.find(name);
    const Use use = known == mCounters.end() ? useOf(name) : known->second.use;
    if (use == Use::kNone) return noteOther(name);
    if ((use == Use::kLayer || use == Use::kStandIn) && (value < 0 || value > kMaxPending)) {
        throw DamagedMarker("counter " + inQuotes(std::string(name)) + " is " +
                            std::to_string(value) + ", but a queue holds 0 to " +
                            std::to_string(kMaxPending) + " buffers");
    }
    noteTime(timeNs);
    const bool isNew = known == mCounters.end();
    if (++mSampleCount > kMaxSamples || (isNew && mCounters.size() >= kMaxCounters)) failAsTooBig();
    if (isNew) known = mCounters.emplace(name, Counter{use, {}}).first;
    known->second.samples.push_back({timeNs, static_cast<int32_t>(value), onMainThread, thread});
}

void CaptureBuilder::noteOther(std::string_view name) {
    std::vector<std::string>& others = mOtherCounters[distanceFromLayer(name)];
    if (others.size() > kMaxNamedCounters) return;
    const bool isNew = std::find(others.begin(), others.end(), name) == others.end();
    if (isNew) others.emplace_back(name);
}

void CaptureBuilder::noteTime(int64_t timeNs) {
    const int64_t first = std::min(mFirstTimeNs, timeNs);
    const int64_t last = std::max(mLastTimeNs, timeNs);
    if (last - first > kMaxCaptureSeconds * kNsPerSecond) {
        throw DamagedMarker("the counters span more than " +
                            std::to_string(kMaxCaptureSeconds / 3600) +
                            " hours; cut the capture to the part of interest");
    }
    if (timeNs < mLastTimeNs && !mCpusInTurn) ++mOutOfOrder;
    mFirstTimeNs = first;
    mLastTimeNs = last;
}

// Captures are merged from one buffer per CPU, so a few lines usually come late.
std::vector<CaptureBuilder::Sample> CaptureBuilder::sorted(
        const std::vector<Sample>& captured) const {
    std::vector<Sample> samples = captured;
    const auto isEarlier = [](const Sample& a, const Sample& b) { return a.timeNs < b.timeNs; };
    if (!std::is_sorted(samples.begin(), samples.end(), isEarlier))
        std::stable_sort(samples.begin(), samples.end(), isEarlier);
    for (Sample& sample : samples) sample.timeNs -= mFirstTimeNs;
    return samples;
}

LayerEvents CaptureBuilder::layerEvents(const std::string& name, const Counter& counter) const {
    LayerEvents events;
    events.counter = name;
    const std::optional<LayerName> layer = layerOfCounter(name);
    events.name = layer ? *layer : *layerOfQueuedBuffer(name);
    if (!layer) events.standIn = "the application's counter, which falls when it hears of it";
    const std::vector<Sample> samples = sorted(counter.samples);
    // The capture may begin with buffers in the queue: what was there at the first sample is no
    // event.
    int64_t level = samples.front().value;
    events.pendingAtStart = static_cast<int>(level);
    for (const Sample& sample : samples) {
        for (; level < sample.value; ++level) {
            events.queueTimesNs.push_back(sample.timeNs);
            events.queueThreads.push_back(sample.thread);
        }
        while (level > sample.value) {
            --level;
            // The compositor takes buffers on its main thread. On any other a newer buffer
            // replaced one that nobody had taken.
            if (sample.onMainThread || !layer) {
                events.consumes.push_back({sample.timeNs, static_cast<int>(level)});
            } else {
                events.replacedTimesNs.push_back(sample.timeNs);
            }
        }
        // One sample may stand for many buffers.
        if (events.queueTimesNs.size() > kMaxSamples) failAsTooBig();
    }
    return events;
}

// Every toggle is a vsync, the first one seen too: tracing shows the counter only when it changes.
VsyncCounter CaptureBuilder::vsyncCounter(const std::string& name, const Counter& counter) const {
    VsyncCounter vsync{name, {}};
    std::optional<int64_t> level;
    for (const Sample& sample : sorted(counter.samples)) {
        if (sample.value != level) vsync.timesNs.push_back(sample.timeNs);
        level = sample.value;
    }
    return vsync;
}

std::vector<LayerEvents> CaptureBuilder::layers(Use use) const {
    std::map<std::string, LayerEvents> layers;
    for (const auto& [name, counter] : mCounters) {
        if (counter.use != use) continue;
        LayerEvents events = layerEvents(name, counter);
        // Some releases show one layer under two counters: the fuller one counts.
        const auto known = layers.find(events.name.layer);
        const size_t knownCount = known == layers.end() ? 0 : known->second.queueTimesNs.size();
        if (events.queueTimesNs.size() > knownCount) layers[events.name.layer] = std::move(events);
    }
    std::vector<LayerEvents> result;
    for (auto& [name, events] : layers) result.push_back(std::move(events));
    return result;
}

std::vector<LayerEvents> CaptureBuilder::layersOfSlices() {
    for (const SlicedLayer& layer : mSlices.layers()) addSlices(layer);
    std::vector<LayerEvents> result = layers(Use::kLayer);
    for (LayerEvents& layer : result) {
        layer.standIn = "the slices around queueing, and latchBuffer for every layer of it";
    }
    return result;
}

// As the counter would have shown it: every composition takes a buffer if there is one.
void CaptureBuilder::addSlices(const SlicedLayer& layer) {
    int64_t level = 0;
    auto latch = layer.latchTimesNs.begin();
    const auto latchUntil = [&](int64_t timeNs) {
        for (; latch != layer.latchTimesNs.end() && *latch < timeNs; ++latch) {
            if (level > 0) addCounter(*latch, layer.counter, --level);
        }
    };
    if (!layer.queueTimesNs.empty()) addCounter(layer.queueTimesNs.front(), layer.counter, 0);
    for (const int64_t timeNs : layer.queueTimesNs) {
        latchUntil(timeNs);
        if (level < kMaxPending) addCounter(timeNs, layer.counter, ++level);
    }
    latchUntil(INT64_MAX);
}

std::vector<VsyncCounter> CaptureBuilder::vsyncs() const {
    std::vector<VsyncCounter> result;
    for (const auto& [name, counter] : mCounters) {
        if (counter.use == Use::kVsync) result.push_back(vsyncCounter(name, counter));
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const VsyncCounter& a, const VsyncCounter& b) {
                         return vsyncRank(a.name) < vsyncRank(b.name);
                     });
    return result;
}

void CaptureBuilder::failWithoutLayers(const std::string& source) const {
    auto nearest = mOtherCounters;
    for (const auto& [name, counter] : mCounters) {
        std::vector<std::string>& names = nearest[counter.use == Use::kVsync ? 2 : 0];
        names.insert(names.begin(), name);
    }
    const auto found = std::find_if(nearest.begin(), nearest.end() - 1,
                                    [](const auto& names) { return !names.empty(); });
    std::vector<std::string> names = *found;
    const bool more = names.size() > kMaxNamedCounters;
    if (more) names.resize(kMaxNamedCounters);
    throw InputError(source + ": no layer queues buffers in it; looked for counters named " +
                     kWanted + " that rise, found " + joined(names) + (more ? " and more" : "") +
                     "; capture a running game with the atrace categories gfx and view");
}

Capture CaptureBuilder::build(const std::string& source) {
    Capture capture;
    capture.source = source;
    capture.layers = layers(Use::kLayer);
    if (capture.layers.empty()) capture.layers = layers(Use::kStandIn);
    if (capture.layers.empty()) capture.layers = layersOfSlices();
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
                format("--refresh: give a rate from %g to %g Hz", kMinRefreshHz, kMaxRefreshHz));
    }
    for (const VsyncCounter& counter : capture.vsyncs) {
        std::optional<Refresh> measured = refreshOf(capture, counter);
        if (!measured || !isPlausible(measured->periodNs)) continue;
        auto& changes = measured->changes;
        changes.erase(std::remove_if(changes.begin(), changes.end(),
                                     [](const auto& c) { return !isPlausible(c.periodNs); }),
                      changes.end());
        const std::string beat = changes.empty() ? takeFasterBeat(*measured, capture) : "";
        if (refreshHz) checkRefresh(*measured, counter.name, *refreshHz);
        VsyncTrack track{*measured, {}, counter.name + beat, 0};
        track.timesNs = continueVsyncs(counter.timesNs, track, 0, capture.durationNs);
        track.continued = track.timesNs.size() - counter.timesNs.size();
        return track;
    }
    if (!refreshHz) {
        throw InputError(capture.source +
                         ": no vsync counter tells the display's rate; looked for VSYNC-sf, VSYNC, "
                         "VSYNC-app, VSYNC-appSf and HW_VSYNC_*, found " +
                         namesOf(capture.vsyncs) +
                         (capture.vsyncs.empty() ? "" : " with too few vsyncs") +
                         "; say it with --refresh HZ");
    }
    VsyncTrack track;
    track.periodNs = std::llround(static_cast<double>(kNsPerSecond) / *refreshHz);
    track.source = "--refresh";
    track.timesNs = continueVsyncs({}, track, 0, capture.durationNs);
    track.continued = track.timesNs.size();
    return track;
}

}  // namespace replay
