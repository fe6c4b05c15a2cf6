#include "replay/findings/Timeline.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace replay {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

struct Line {
    int64_t timeNs;
    int thread;
    std::string text;
};

// "-0.001000000": exact, and wide enough to stay aligned for a quarter of an hour.
std::string seconds(int64_t timeNs) {
    const int64_t magnitude = timeNs < 0 ? -timeNs : timeNs;
    char digits[48];
    std::snprintf(digits, sizeof(digits), "%s%lld.%09lld", timeNs < 0 ? "-" : "",
                  static_cast<long long>(magnitude / kNsPerSecond),
                  static_cast<long long>(magnitude % kNsPerSecond));
    char padded[64];
    std::snprintf(padded, sizeof(padded), "%14s", digits);
    return padded;
}

// Some of the library's texts end in a line break.
std::string onOneLine(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else {
            result += c;
        }
    }
    return result;
}

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

void addFed(std::vector<Line>& begins, std::vector<Line>& ends, const std::vector<FedEvent>& fed) {
    for (const FedEvent& event : fed) {
        begins.push_back({event.deliveredNs, event.thread, describeFed(event)});
        if (event.heldNs() == 0) continue;
        ends.push_back({event.returnedNs, event.thread,
                        std::string("< ") + toString(event.kind) + " held " +
                                std::to_string(event.heldNs()) + " ns"});
    }
}

// A begin whose end follows at once is a marker, not a section.
bool isInstant(const std::vector<standin::Event>& events, size_t index) {
    if (index + 1 >= events.size()) return false;
    const standin::Event& begin = events[index];
    const standin::Event& end = events[index + 1];
    return begin.kind == standin::EventKind::kTraceBegin &&
           end.kind == standin::EventKind::kTraceEnd && begin.thread == end.thread &&
           begin.timeNs == end.timeNs;
}

void addSeen(std::vector<Line>& lines, const std::vector<standin::Event>& events) {
    for (size_t i = 0; i < events.size(); ++i) {
        const standin::Event& event = events[i];
        if (isInstant(events, i)) {
            lines.push_back({event.timeNs, event.thread, "mark " + onOneLine(event.text)});
            ++i;
        } else {
            const char* kind = event.kind == standin::EventKind::kLog           ? "log "
                               : event.kind == standin::EventKind::kServiceCall ? "call "
                                                                                : "";
            lines.push_back({event.timeNs, event.thread, kind + onOneLine(describe(event))});
        }
    }
}

}  // namespace

void writeTimeline(std::ostream& out, const Run& run) {
    // At one time a call into the library comes before what it causes, and its return last.
    std::vector<Line> lines;
    std::vector<Line> returns;
    addFed(lines, returns, run.fed);
    addSeen(lines, run.seen);
    lines.insert(lines.end(), returns.begin(), returns.end());
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& a, const Line& b) { return a.timeNs < b.timeNs; });
    for (const Line& line : lines) {
        char thread[32];
        std::snprintf(thread, sizeof(thread), "  %-15s  ", run.threadName(line.thread).c_str());
        out << seconds(line.timeNs) << thread << line.text << '\n';
    }
}

}  // namespace replay
