#include "replay/findings/Timeline.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "replay/base/Text.h"

namespace replay {

namespace {

struct TimedLine {
    int64_t timeNs;
    int thread;
    std::string text;
};

std::string describeFed(const FedEvent& event) {
    std::string text = std::string("> ") + toString(event.kind);
    switch (event.kind) {
        case FedEvent::Kind::kInit:
            text += event.value != 0 ? " active" : " inactive";
            break;
        case FedEvent::Kind::kVsyncPeriod:
            text += " " + std::to_string(event.value) + " ns";
            break;
        case FedEvent::Kind::kConsume:
            text += " pending " + std::to_string(event.value);
            break;
        default:
            break;
    }
    if (event.lateNs() > 0) text += " late by " + std::to_string(event.lateNs()) + " ns";
    return text;
}

void addFed(std::vector<TimedLine>& begins, std::vector<TimedLine>& ends,
            const std::vector<FedEvent>& fed) {
    for (const FedEvent& event : fed) {
        begins.push_back({event.deliveredNs, event.thread, describeFed(event)});
        if (event.heldNs() == 0) continue;
        ends.push_back({event.returnedNs, event.thread,
                        std::string("< ") + toString(event.kind) + " held " +
                                std::to_string(event.heldNs()) + " ns"});
    }
}

// A begin whose end follows at once is a marker, not a section.
bool isInstant(const device::Event& begin, const device::Event& end) {
    return begin.kind == device::EventKind::kTraceBegin &&
           end.kind == device::EventKind::kTraceEnd && begin.thread == end.thread &&
           begin.timeNs == end.timeNs;
}

void addSeen(std::vector<TimedLine>& lines, const EventLog& events) {
    for (size_t i = 0; i < events.size(); ++i) {
        const device::Event event = events[i];
        if (i + 1 < events.size() && isInstant(event, events[i + 1])) {
            lines.push_back({event.timeNs, event.thread, "mark " + onOneLine(event.text)});
            ++i;
        } else {
            const char* kind = event.kind == device::EventKind::kLog           ? "log "
                               : event.kind == device::EventKind::kServiceCall ? "call "
                                                                               : "";
            lines.push_back({event.timeNs, event.thread, kind + onOneLine(describe(event))});
        }
    }
}

}  // namespace

void writeTimeline(std::ostream& out, const Run& run) {
    // At one time a call into the library comes before what it causes, and its return last.
    std::vector<TimedLine> lines;
    std::vector<TimedLine> returns;
    addFed(lines, returns, run.fed);
    addSeen(lines, run.seen);
    lines.insert(lines.end(), returns.begin(), returns.end());
    std::stable_sort(lines.begin(), lines.end(),
                     [](const TimedLine& a, const TimedLine& b) { return a.timeNs < b.timeNs; });
    for (const TimedLine& line : lines) {
        char thread[32];
        std::snprintf(thread, sizeof(thread), "  %-15s  ", run.threadName(line.thread).c_str());
        out << alignedSeconds(line.timeNs) << thread << line.text << '\n';
    }
}

}  // namespace replay
