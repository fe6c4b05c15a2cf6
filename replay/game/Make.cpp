#include "replay/game/Make.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "replay/base/Statistics.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int64_t kLongAgo = INT64_MIN / 4;
constexpr int64_t kDefaultLatchDelayNs = 1'000'000;
constexpr int kUsualMaxBuffers = 4;
constexpr int kNearPercent = 25;
constexpr const char* kEvery[] = {"", "vsyncs", "every second vsync", "every third vsync",
                                  "every fourth vsync"};
// A beat that comes sooner after the start of a frame is the one that started it.
constexpr int64_t kSameBeatShare = 8;

std::string phasesText(const std::vector<Make::Phase>& phases) {
    std::string text;
    for (const Make::Phase& phase : phases) {
        text += format(", %.3f ms after", toMs(phase.phaseNs));
        if (phases.size() > 1) text += format(" at %.0f Hz", toHertz(phase.periodNs));
    }
    return text;
}

}  // namespace

std::string Make::describe() const {
    const std::string queue = format(", %d buffers", buffers);
    switch (kind) {
        case Kind::kBuffer:
            return "waits for a free buffer" + queue;
        case Kind::kVsync:
            return std::string("starts at ") + kEvery[everyVsyncs] + phasesText(phases) +
                   (takesMissed ? ", or at once if one was missed" : "") + queue;
        case Kind::kTimer:
            return format("starts by its own timer every %.3f ms", toMs(timerNs)) + queue;
        case Kind::kStages:
            return "works on two frames at once in two threads" + queue;
    }
    return "";
}

int64_t Make::phaseNs(int64_t periodNs) const {
    const auto isNearer = [&](const Phase& a, const Phase& b) {
        return std::abs(a.periodNs - periodNs) < std::abs(b.periodNs - periodNs);
    };
    const auto nearest = std::min_element(phases.begin(), phases.end(), isNearer);
    return nearest == phases.end() ? 0 : nearest->phaseNs;
}

Part Make::waitsFor() const {
    switch (kind) {
        case Kind::kVsync:
            return Part::kVsync;
        case Kind::kTimer:
            return Part::kTimer;
        case Kind::kStages:
            return Part::kStage;
        case Kind::kBuffer:
            break;
    }
    return Part::kBuffer;
}

int64_t Beats::timeNs(size_t index) const {
    const std::vector<int64_t>& times = mTrack.timesNs;
    if (index < times.size()) return times[index];
    const int64_t last = times.empty() ? 0 : times.back();
    const size_t known = times.empty() ? 0 : times.size() - 1;
    return last + static_cast<int64_t>(index - known) * mTrack.periodAt(last);
}

size_t Beats::indexFrom(int64_t timeNs) const {
    const std::vector<int64_t>& times = mTrack.timesNs;
    size_t index = std::min(mLast, times.size());
    while (index > 0 && times[index - 1] >= timeNs) --index;
    while (index < times.size() && times[index] < timeNs) ++index;
    mLast = index;
    if (index == times.size() && !times.empty())
        index = times.size() - 1 +
                static_cast<size_t>((timeNs - times.back() + mTrack.periodNs - 1) /
                                    mTrack.periodNs);
    if (times.empty() && timeNs > 0)
        index = static_cast<size_t>((timeNs + mTrack.periodNs - 1) / mTrack.periodNs);
    return index;
}

int64_t readyNs(const Make& make, const Beats& beats, const FrameWork& frame, int64_t returnedNs,
                int64_t lastReadyNs) {
    if (make.kind == Make::Kind::kTimer) {
        const int64_t timerNs = frame.timerNs > 0 ? frame.timerNs : make.timerNs;
        return std::max(returnedNs, lastReadyNs + timerNs);
    }
    if (make.kind != Make::Kind::kVsync) return returnedNs;
    const int64_t periodNs = beats.periodAt(lastReadyNs);
    const int64_t nextNs =
            lastReadyNs + (make.everyVsyncs - 1) * periodNs + periodNs / kSameBeatShare;
    const int64_t earliestNs = make.takesMissed ? nextNs : std::max(nextNs, returnedNs);
    const int64_t phaseNs = make.phaseNs(beats.periodAt(earliestNs));
    const int64_t beatNs = beats.timeNs(beats.indexFrom(earliestNs - phaseNs)) + phaseNs;
    return std::max(returnedNs, beatNs + make.wakeDelayNs + frame.passedVsyncs * periodNs);
}

double periodsAFrame(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    const std::vector<int64_t>& times = layer.queueTimesNs;
    std::vector<int64_t> millionths;  // of a period
    for (size_t i = 1; i < times.size(); ++i) {
        const auto lengthNs = static_cast<double>(times[i] - times[i - 1]);
        millionths.push_back(
                std::llround(1e6 * lengthNs / static_cast<double>(vsyncs.periodAt(times[i]))));
    }
    return static_cast<double>(percentile(std::move(millionths), 50)) / 1e6;
}

std::array<int, 2> vsyncsAFrame(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    constexpr int kMost = static_cast<int>(std::size(kEvery)) - 1;
    const double periods = std::min<double>(periodsAFrame(layer, vsyncs), kMost);
    return {1, std::max(static_cast<int>(std::lround(periods)), 2)};
}

std::vector<int> buffersOf(const LayerEvents& layer, const Scheduling& scheduling) {
    const int slots = scheduling.slotsOf(layer.counter);
    // A queue is fullest right before a buffer is taken, or at the end.
    int64_t most = layer.pendingAtStart;
    for (const ConsumeEvent& consume : layer.consumes)
        most = std::max(most, int64_t{consume.pending} + 1);
    const auto atEnd = static_cast<int64_t>(layer.queueTimesNs.size()) -
                       static_cast<int64_t>(layer.consumes.size()) + layer.pendingAtStart;
    const auto seen = static_cast<int>(
            std::clamp<int64_t>(std::max(most, atEnd) + 1, kMinBuffers, kMaxBuffers));
    if (slots >= seen) return {slots};
    std::vector<int> counts;
    for (int count = seen; count <= std::max(seen, kUsualMaxBuffers); ++count)
        counts.push_back(count);
    return counts;
}

std::vector<int64_t> freeTimesNs(const LayerEvents& layer, int buffers) {
    std::vector<int64_t> times(layer.queueTimesNs.size(), kLongAgo);
    auto consume = layer.consumes.begin();
    int64_t pending = layer.pendingAtStart;
    for (size_t i = 1; i < times.size(); ++i) {
        const int64_t before = layer.queueTimesNs[i - 1];
        for (; consume != layer.consumes.end() && consume->timeNs < before; ++consume)
            pending = consume->pending;
        ++pending;  // the buffer before
        // One more is on the screen, and one is needed.
        auto freed = consume;
        for (int64_t left = pending; left + 1 >= buffers && freed != layer.consumes.end();
             ++freed) {
            times[i] = freed->timeNs;
            left = freed->pending;
        }
    }
    return times;
}

int64_t meanNearMedian(const std::vector<int64_t>& values) {
    const int64_t median = percentile(values, 50);
    int64_t sum = 0;
    int64_t count = 0;
    for (const int64_t value : values) {
        if (100 * std::abs(value - median) > kNearPercent * median) continue;
        sum += value;
        ++count;
    }
    return count == 0 ? median : sum / count;
}

int64_t medianWorkNs(const std::vector<FrameWork>& work) {
    std::vector<int64_t> times;
    times.reserve(work.size());
    for (const FrameWork& frame : work) times.push_back(frame.workNs + frame.firstStageNs);
    return percentile(times, 50);
}

int64_t usualLatchDelayNs(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    const std::vector<int64_t>& times = vsyncs.timesNs;
    std::vector<int64_t> delays;
    auto next = times.begin();
    for (const ConsumeEvent& consume : layer.consumes) {
        while (next != times.end() && *next <= consume.timeNs) ++next;
        if (next != times.begin()) delays.push_back(consume.timeNs - *(next - 1));
    }
    return delays.empty() ? kDefaultLatchDelayNs : percentile(delays, 50);
}

std::vector<int64_t> latchDelaysNs(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    const std::vector<int64_t>& times = vsyncs.timesNs;
    std::vector<int64_t> delays(times.size(), usualLatchDelayNs(layer, vsyncs));
    std::vector<bool> latched(times.size(), false);
    auto next = times.begin();
    for (const ConsumeEvent& consume : layer.consumes) {
        while (next != times.end() && *next <= consume.timeNs) ++next;
        if (next == times.begin()) continue;
        const auto index = static_cast<size_t>(next - times.begin()) - 1;
        if (!latched[index]) delays[index] = consume.timeNs - times[index];
        latched[index] = true;
    }
    // A buffer that was there at the vsync and still is at the next was passed over.
    auto queued = layer.queueTimesNs.begin();
    auto consume = layer.consumes.begin();
    int64_t pending = layer.pendingAtStart;
    for (size_t i = 0; i + 1 < times.size(); ++i) {
        for (; consume != layer.consumes.end() && consume->timeNs <= times[i]; ++consume) --pending;
        for (; queued != layer.queueTimesNs.end() && *queued <= times[i]; ++queued) ++pending;
        if (pending > 0 && !latched[i]) delays[i] = kNoLatch;
    }
    return delays;
}

}  // namespace replay
