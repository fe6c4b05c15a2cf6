#include "replay/capture/Part.h"

#include <algorithm>
#include <utility>

#include "replay/base/Error.h"

namespace replay {

namespace {

int64_t countBetween(const std::vector<int64_t>& timesNs, int64_t beginNs, int64_t endNs) {
    return std::count_if(timesNs.begin(), timesNs.end(),
                         [&](int64_t timeNs) { return timeNs >= beginNs && timeNs < endNs; });
}

int pendingAt(const LayerEvents& layer, int64_t timeNs) {
    int64_t sinceNs = INT64_MIN;
    int64_t pending = layer.pendingAtStart;
    for (const ConsumeEvent& event : layer.consumes) {
        if (event.timeNs >= timeNs) break;
        sinceNs = event.timeNs;
        pending = event.pending;
    }
    pending += countBetween(layer.queueTimesNs, sinceNs, timeNs) -
               countBetween(layer.replacedTimesNs, sinceNs, timeNs);
    return static_cast<int>(std::max<int64_t>(pending, 0));
}

class Cut {
  public:
    Cut(int64_t fromNs, int64_t toNs) : mFromNs(fromNs), mToNs(toNs) {}

    // Also of what stands beside each of the times, if there is such a list.
    void times(std::vector<int64_t>& list, std::vector<int>* beside = nullptr) const {
        size_t kept = 0;
        for (size_t i = 0; i < list.size(); ++i) {
            if (list[i] < mFromNs || list[i] > mToNs) continue;
            if (beside != nullptr) (*beside)[kept] = (*beside)[i];
            list[kept++] = list[i] - mFromNs;
        }
        list.resize(kept);
        if (beside != nullptr) beside->resize(kept);
    }

    template <typename Event>
    void events(std::vector<Event>& list, int64_t Event::*timeNs) const {
        const auto isOutside = [&](const Event& event) {
            return event.*timeNs < mFromNs || event.*timeNs > mToNs;
        };
        list.erase(std::remove_if(list.begin(), list.end(), isOutside), list.end());
        for (Event& event : list) event.*timeNs -= mFromNs;
    }

  private:
    const int64_t mFromNs;
    const int64_t mToNs;
};

template <typename List>
void append(List& list, const List& more) {
    list.insert(list.end(), more.begin(), more.end());
}

}  // namespace

void cutCapture(Capture& capture, int64_t fromNs, int64_t toNs) {
    const Cut cut(fromNs, toNs);
    for (LayerEvents& layer : capture.layers) {
        layer.pendingAtStart = pendingAt(layer, fromNs);
        const bool hasThreads = layer.queueThreads.size() == layer.queueTimesNs.size();
        cut.times(layer.queueTimesNs, hasThreads ? &layer.queueThreads : nullptr);
        cut.events(layer.consumes, &ConsumeEvent::timeNs);
        cut.times(layer.replacedTimesNs);
    }
    for (VsyncCounter& counter : capture.vsyncs) cut.times(counter.timesNs);
    cut.events(capture.timeline, &TimelineFrame::endNs);
    capture.scheduling.moveOrigin(fromNs);
    capture.originNs += fromNs;
    capture.durationNs = toNs - fromNs;
}

size_t joinLayers(Capture& capture, std::vector<size_t> indexes) {
    std::sort(indexes.begin(), indexes.end(), [&](size_t a, size_t b) {
        return capture.layers[a].queueTimesNs < capture.layers[b].queueTimesNs;
    });
    LayerEvents joined = std::move(capture.layers[indexes.front()]);
    for (size_t i = 1; i < indexes.size(); ++i) {
        LayerEvents next = std::move(capture.layers[indexes[i]]);
        if (next.queueTimesNs.front() <= joined.queueTimesNs.back()) {
            throw InputError(capture.source + ": --join: " + joined.name.layer + " and " +
                             next.name.layer + " queue at the same time; choose one with --layer");
        }
        joined.name = next.name;
        joined.counter = next.counter;
        // The first one may have been taken last only when the next one was there.
        const auto stale = [&](const ConsumeEvent& event) {
            return event.timeNs >= next.queueTimesNs.front();
        };
        auto& consumes = joined.consumes;
        consumes.erase(std::remove_if(consumes.begin(), consumes.end(), stale), consumes.end());
        append(joined.queueTimesNs, next.queueTimesNs);
        append(joined.queueThreads, next.queueThreads);
        append(consumes, next.consumes);
        append(joined.replacedTimesNs, next.replacedTimesNs);
    }
    capture.layers[indexes.back()] = std::move(joined);
    return indexes.back();
}

}  // namespace replay
