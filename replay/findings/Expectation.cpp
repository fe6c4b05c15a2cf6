#include "replay/findings/Expectation.h"

#include <algorithm>
#include <map>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/findings/FrameFindings.h"
#include "replay/play/Hints.h"

namespace replay {

namespace {

// The number is the version: it changes with what is recorded, and with how it is written.
constexpr char kHead[] = "cindral-replay expectation ";
constexpr int kVersion = 2;
constexpr char kLayer[] = "layer ";
constexpr char kOption[] = "option ";
constexpr char kEvent[] = "at ";
constexpr char kEnd[] = "end";

std::string withoutAnswer(const std::string& call) {
    return call.substr(0, call.rfind(" = "));
}

const char* nameOf(Feature feature) {
    switch (feature) {
        case Feature::kPl:
            return "PL";
        case Feature::kCoreControl:
            return "core control";
        case Feature::kUnknown:
            return "unknown";
    }
    return "";
}

std::string lineOf(char mark, const ExpectedEvent& event) {
    const std::string frame = event.frame == kNoFrame ? "-" : std::to_string(event.frame);
    return std::string(1, mark) + " " + alignedSeconds(event.timeNs) + "  frame " + frame + "  " +
           event.text;
}

std::string movedLine(const ExpectedEvent& before, const ExpectedEvent& after) {
    return lineOf('~', before) + format("  came %.6f ms %s",
                                        std::abs(toMs(after.timeNs - before.timeNs)),
                                        after.timeNs < before.timeNs ? "earlier" : "later");
}

// What happened is the same, how much or to what end is not: "held 8.3 ms", "log D ...".
bool isOneKind(const ExpectedEvent& a, const ExpectedEvent& b) {
    return a.timeNs == b.timeNs &&
           a.text.substr(0, a.text.find(' ')) == b.text.substr(0, b.text.find(' '));
}

[[noreturn]] void refuse(const std::string& name, size_t line, const std::string& why) {
    throw InputError(name + ":" + std::to_string(line) + ": " + why +
                     "; make it anew with cindral-replay record");
}

// "1071812000 63 call perf_hint(4166, (null), 8, 1500)"
bool parseEvent(std::string_view text, ExpectedEvent& event) {
    const size_t afterTime = text.find(' ');
    if (afterTime == std::string_view::npos) return false;
    const size_t afterFrame = text.find(' ', afterTime + 1);
    if (afterFrame == std::string_view::npos) return false;
    event.text = text.substr(afterFrame + 1);
    return toNumber(text.substr(0, afterTime), event.timeNs) &&
           toNumber(text.substr(afterTime + 1, afterFrame - afterTime - 1), event.frame) &&
           !event.text.empty();
}

void requireVersion(const std::string& name, const std::string& head) {
    int version = 0;
    if (!isExpectation(head) || !toNumber(trimmed(head).substr(sizeof(kHead) - 1), version)) {
        refuse(name, 1, "not an expectation");
    }
    if (version == kVersion) return;
    throw InputError(name + format(": recorded by %s cindral-replay (version %d, this one compares "
                                   "version %d); make it anew with cindral-replay record",
                                   version < kVersion ? "an older" : "a newer", version, kVersion));
}

bool parseLine(const std::string& line, Expectation& expectation) {
    const auto rest = [&](const char* start) {
        return line.substr(std::char_traits<char>::length(start));
    };
    if (line.rfind(kLayer, 0) == 0) {
        expectation.layer = rest(kLayer);
    } else if (line.rfind(kOption, 0) == 0) {
        expectation.options.push_back(rest(kOption));
    } else if (line.rfind(kEvent, 0) == 0) {
        expectation.events.emplace_back();
        return parseEvent(rest(kEvent), expectation.events.back());
    } else {
        return line.empty() || line[0] == '#';
    }
    return true;
}

// Of a call, without what only numbers it; empty for a question.
std::string callText(const device::Event& event, std::map<std::string, Feature>& held) {
    if (event.entryPoint == device::EntryPoint::kPerfLockRel) {
        const std::string handle =
                event.arguments.empty() ? "" : std::to_string(event.arguments[0]);
        return format("call perf_lock_rel(%s)", nameOf(held[handle]));
    }
    const bool isLock = event.entryPoint == device::EntryPoint::kPerfLockAcq;
    if (isLock) held[event.result] = lockedFeature(event);
    if (!isLock && hintOf(event).kind == Hint::Kind::kNone) return "";
    return "call " + withoutAnswer(describe(event));
}

// Empty for what is not recorded.
std::string textOf(const device::Event& event, std::map<std::string, Feature>& held) {
    switch (event.kind) {
        case device::EventKind::kServiceCall:
            return callText(event, held);
        case device::EventKind::kLog:
            return "log " + onOneLine(describe(event));
        case device::EventKind::kTraceBegin:
            return "mark " + onOneLine(event.text);
        case device::EventKind::kTraceEnd:
            break;
    }
    return "";
}

}  // namespace

std::vector<ExpectedEvent> expectedEvents(const Findings& findings, const Run& run) {
    std::vector<ExpectedEvent> events;
    for (const Frame& frame : findings.frames) {
        if (frame.heldNs() == 0) continue;
        events.push_back({frame.queuedNs, kNoFrame, format("held %.6f ms", toMs(frame.heldNs()))});
    }
    std::map<std::string, Feature> held;  // by handle
    for (const device::Event& event : run.seen) {
        const std::string text = textOf(event, held);
        if (!text.empty()) events.push_back({event.timeNs, kNoFrame, text});
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& a, const auto& b) { return a.timeNs < b.timeNs; });
    FrameCursor cursor(findings.frames);
    for (ExpectedEvent& event : events) event.frame = cursor.at(event.timeNs);
    return events;
}

void writeExpectation(std::ostream& out, const Expectation& expectation) {
    out << kHead << kVersion << "\n# at: ns since the first event of the capture, and frame\n"
        << kLayer << expectation.layer << '\n';
    for (const std::string& option : expectation.options) out << kOption << option << '\n';
    for (const ExpectedEvent& event : expectation.events) {
        out << kEvent << event.timeNs << ' ' << event.frame << ' ' << event.text << '\n';
    }
    out << kEnd << '\n';
}

bool isExpectation(std::string_view firstBytes) {
    return startsWith(firstBytes, kHead);
}

Expectation readExpectation(std::istream& in, const std::string& name) {
    Expectation expectation;
    std::string line;
    std::getline(in, line);
    requireVersion(name, line);
    for (size_t number = 2; std::getline(in, line); ++number) {
        if (line == kEnd) return expectation;
        if (!parseLine(line, expectation)) refuse(name, number, inQuotes(line) + " makes no sense");
    }
    throw InputError(name + ": its end is missing; make it anew with cindral-replay record");
}

std::vector<std::string> differencesOf(const std::vector<ExpectedEvent>& expected,
                                       const std::vector<ExpectedEvent>& actual) {
    std::vector<std::string> lines;
    size_t e = 0;
    size_t a = 0;
    while (e < expected.size() || a < actual.size()) {
        const bool hasBoth = e < expected.size() && a < actual.size();
        if (hasBoth && expected[e] == actual[a]) {
            ++e, ++a;
        } else if (hasBoth && expected[e].text == actual[a].text &&
                   (e + 1 == expected.size() || actual[a].timeNs < expected[e + 1].timeNs) &&
                   (a + 1 == actual.size() || expected[e].timeNs < actual[a + 1].timeNs)) {
            lines.push_back(movedLine(expected[e++], actual[a++]));
        } else if (hasBoth && isOneKind(expected[e], actual[a])) {
            lines.push_back(lineOf('~', expected[e++]) + "  is now  " + actual[a++].text);
        } else if (a == actual.size() || (hasBoth && expected[e].timeNs <= actual[a].timeNs)) {
            lines.push_back(lineOf('-', expected[e++]));
        } else {
            lines.push_back(lineOf('+', actual[a++]));
        }
    }
    return lines;
}

}  // namespace replay
