#include "replay/play/Work.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Statistics.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr char kPercentPrefix[] = "percent:";
constexpr char kFixedPrefix[] = "fixed:";
constexpr double kMaxPercent = 100;
constexpr double kMaxFixedMs = 10'000;
constexpr double kNsPerMs = 1e6;

// A stall: the buffer came a whole vsync late, rounded.
constexpr int kStallHalfPeriods = 3;
// How many frames after a stall a game can be expected to hurry.
constexpr size_t kFramesAfterStall = 3;
// The shortest tenth of those: the others may have waited nevertheless.
constexpr int kShortestPercent = 10;
constexpr int64_t kDefaultLatchDelayNs = 1'000'000;

struct PlainName {
    const char* name;
    WorkEstimator::Kind kind;
};

constexpr PlainName kPlainNames[] = {
        {"shortest-after-stall", WorkEstimator::Kind::kShortestAfterStall},
        {"since-free", WorkEstimator::Kind::kSinceFree},
        {"interval", WorkEstimator::Kind::kInterval},
};

bool isStall(int64_t timeNs, int64_t periodNs) {
    return 2 * timeNs > kStallHalfPeriods * periodNs;
}

double amountOf(const std::string& text, size_t prefix, double most) {
    double amount = 0;
    if (!toNumber(std::string_view(text).substr(prefix), amount) || !(amount > 0) ||
        amount > most) {
        throw InputError("--work " + inQuotes(text) +
                         format(": give a number above 0, at most %g", most));
    }
    return amount;
}

std::vector<int64_t> capped(std::vector<int64_t> times, int64_t periodNs) {
    const int64_t work = busyWorkNs(times, periodNs);
    for (int64_t& time : times) {
        // What took longer than it should have is taken for work: games do not wait beyond a vsync.
        if (!isStall(time, periodNs)) time = std::min(time, work);
    }
    return times;
}

std::vector<int64_t> intervalsOf(const LayerEvents& layer) {
    std::vector<int64_t> intervals = differences(layer.queueTimesNs);
    if (!layer.queueTimesNs.empty()) {
        intervals.insert(intervals.begin(), layer.queueTimesNs.front());
    }
    return intervals;
}

std::vector<int64_t> scaled(std::vector<int64_t> times, double percent) {
    for (int64_t& time : times) time = std::llround(static_cast<double>(time) * percent / 100);
    return times;
}

std::vector<int64_t> estimate(const LayerEvents& layer, int64_t periodNs, int buffers,
                              const WorkEstimator& estimator) {
    switch (estimator.kind) {
        case WorkEstimator::Kind::kInterval:
            return intervalsOf(layer);
        case WorkEstimator::Kind::kSinceFree:
            return sinceFreeNs(layer, buffers);
        case WorkEstimator::Kind::kShortestAfterStall:
            return capped(sinceFreeNs(layer, buffers), periodNs);
        case WorkEstimator::Kind::kPercent:
            return scaled(sinceFreeNs(layer, buffers), estimator.amount);
        case WorkEstimator::Kind::kFixed:
            return std::vector<int64_t>(layer.queueTimesNs.size(),
                                        std::llround(estimator.amount * kNsPerMs));
    }
    return {};
}

}  // namespace

std::string WorkEstimator::name() const {
    if (kind == Kind::kPercent) return kPercentPrefix + format("%g", amount);
    if (kind == Kind::kFixed) return kFixedPrefix + format("%g", amount);
    for (const PlainName& plain : kPlainNames) {
        if (plain.kind == kind) return plain.name;
    }
    return "";
}

WorkEstimator parseWorkEstimator(const std::string& text) {
    for (const PlainName& plain : kPlainNames) {
        if (text == plain.name) return {plain.kind, 0};
    }
    if (text.rfind(kPercentPrefix, 0) == 0) {
        return {WorkEstimator::Kind::kPercent,
                amountOf(text, sizeof(kPercentPrefix) - 1, kMaxPercent)};
    }
    if (text.rfind(kFixedPrefix, 0) == 0) {
        return {WorkEstimator::Kind::kFixed, amountOf(text, sizeof(kFixedPrefix) - 1, kMaxFixedMs)};
    }
    throw InputError("--work " + inQuotes(text) +
                     ": give shortest-after-stall, since-free, interval, percent:P, fixed:MS or "
                     "all");
}

std::vector<WorkEstimator> allWorkEstimators() {
    std::vector<WorkEstimator> all;
    for (const PlainName& plain : kPlainNames) all.push_back({plain.kind, 0});
    return all;
}

std::vector<int64_t> workTimesNs(const LayerEvents& layer, int64_t periodNs, int buffers,
                                 const WorkEstimator& estimator) {
    std::vector<int64_t> times = estimate(layer, periodNs, buffers, estimator);
    // The capture may begin in the middle of the first frame.
    if (!times.empty()) times.front() = std::min(times.front(), periodNs);
    for (int64_t& time : times) time = std::max(time, kMinWorkNs);
    return times;
}

std::vector<int64_t> sinceFreeNs(const LayerEvents& layer, int buffers) {
    std::vector<int64_t> times = intervalsOf(layer);
    auto consume = layer.consumes.begin();
    int64_t pending = layer.pendingAtStart;
    for (size_t i = 1; i < times.size(); ++i) {
        const int64_t before = layer.queueTimesNs[i - 1];
        for (; consume != layer.consumes.end() && consume->timeNs < before; ++consume) {
            pending = consume->pending;
        }
        ++pending;  // the buffer before
        // One more is on the screen.
        const bool wasFull = pending + 1 >= buffers;
        const bool freed =
                consume != layer.consumes.end() && consume->timeNs < layer.queueTimesNs[i];
        if (wasFull && freed) times[i] = layer.queueTimesNs[i] - consume->timeNs;
    }
    return times;
}

int64_t busyWorkNs(const std::vector<int64_t>& sinceFreeNs, int64_t periodNs) {
    std::vector<int64_t> hurried;
    size_t left = 0;
    for (const int64_t time : sinceFreeNs) {
        if (isStall(time, periodNs)) {
            left = kFramesAfterStall;
        } else if (left > 0) {
            --left;
            hurried.push_back(time);
        }
    }
    return percentile(hurried.empty() ? sinceFreeNs : hurried, kShortestPercent);
}

int buffersSeen(const LayerEvents& layer) {
    // A queue is fullest right before a buffer is taken, or at the end.
    int64_t most = layer.pendingAtStart;
    for (const ConsumeEvent& consume : layer.consumes) {
        most = std::max(most, int64_t{consume.pending} + 1);
    }
    const auto atEnd = static_cast<int64_t>(layer.queueTimesNs.size()) -
                       static_cast<int64_t>(layer.consumes.size()) + layer.pendingAtStart;
    return static_cast<int>(
            std::clamp<int64_t>(std::max(most, atEnd) + 1, kMinBuffers, kMaxBuffers));
}

int64_t usualLatchDelayNs(const LayerEvents& layer, const VsyncTrack& vsyncs) {
    std::vector<int64_t> delays;
    for (const ConsumeEvent& consume : layer.consumes) {
        const auto next =
                std::upper_bound(vsyncs.timesNs.begin(), vsyncs.timesNs.end(), consume.timeNs);
        if (next != vsyncs.timesNs.begin()) delays.push_back(consume.timeNs - *(next - 1));
    }
    return delays.empty() ? kDefaultLatchDelayNs : percentile(delays, 50);
}

}  // namespace replay
