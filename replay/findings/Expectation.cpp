#include "replay/findings/Expectation.h"

#include <charconv>
#include <map>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/play/Hints.h"

namespace replay {

namespace {

constexpr char kHead[] = "cindral-replay expectation 1";
constexpr char kLayer[] = "layer ";
constexpr char kOption[] = "option ";
constexpr char kCall[] = "call ";
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

std::string lineOf(char mark, const ExpectedCall& call) {
    return std::string(1, mark) + " " + alignedSeconds(call.timeNs) + "  " + call.text;
}

std::string movedLine(const ExpectedCall& before, const ExpectedCall& after) {
    return lineOf('~', before) + format("  came %.6f ms %s",
                                        std::abs(toMs(after.timeNs - before.timeNs)),
                                        after.timeNs < before.timeNs ? "earlier" : "later");
}

[[noreturn]] void refuse(const std::string& name, size_t line, const std::string& why) {
    throw InputError(name + ":" + std::to_string(line) + ": " + why +
                     "; make it anew with cindral-replay record");
}

// "1071812000 perf_hint(4166, (null), 8, 1500)"
bool parseCall(const std::string& text, ExpectedCall& call) {
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, call.timeNs);
    if (error != std::errc() || stopped == end || *stopped != ' ') return false;
    call.text.assign(stopped + 1, end);
    return !call.text.empty();
}

bool parseLine(const std::string& line, Expectation& expectation) {
    const auto rest = [&](const char* start) {
        return line.substr(std::char_traits<char>::length(start));
    };
    if (line.rfind(kLayer, 0) == 0) {
        expectation.layer = rest(kLayer);
    } else if (line.rfind(kOption, 0) == 0) {
        expectation.options.push_back(rest(kOption));
    } else if (line.rfind(kCall, 0) == 0) {
        expectation.calls.emplace_back();
        return parseCall(rest(kCall), expectation.calls.back());
    } else {
        return line.empty() || line[0] == '#';
    }
    return true;
}

}  // namespace

std::vector<ExpectedCall> expectedCalls(const Run& run) {
    std::vector<ExpectedCall> calls;
    std::map<std::string, Feature> held;  // by handle
    for (const device::Event& event : run.seen) {
        if (event.kind != device::EventKind::kServiceCall) continue;
        if (event.entryPoint == device::EntryPoint::kPerfLockRel) {
            const std::string handle =
                    event.arguments.empty() ? "" : std::to_string(event.arguments[0]);
            calls.push_back({event.timeNs, format("perf_lock_rel(%s)", nameOf(held[handle]))});
        } else if (event.entryPoint == device::EntryPoint::kPerfLockAcq) {
            held[event.result] = lockedFeature(event);
            calls.push_back({event.timeNs, withoutAnswer(describe(event))});
        } else if (hintOf(event).kind != Hint::Kind::kNone) {
            calls.push_back({event.timeNs, withoutAnswer(describe(event))});
        }
    }
    return calls;
}

void writeExpectation(std::ostream& out, const Expectation& expectation) {
    out << kHead << "\n# times are ns since the first event of the capture\n"
        << kLayer << expectation.layer << '\n';
    for (const std::string& option : expectation.options) out << kOption << option << '\n';
    for (const ExpectedCall& call : expectation.calls) {
        out << kCall << call.timeNs << ' ' << onOneLine(call.text) << '\n';
    }
    out << kEnd << '\n';
}

Expectation readExpectation(std::istream& in, const std::string& name) {
    Expectation expectation;
    std::string line;
    if (!std::getline(in, line) || line != kHead) refuse(name, 1, "not an expectation");
    for (size_t number = 2; std::getline(in, line); ++number) {
        if (line == kEnd) return expectation;
        if (!parseLine(line, expectation)) refuse(name, number, inQuotes(line) + " makes no sense");
    }
    throw InputError(name + ": its end is missing; make it anew with cindral-replay record");
}

std::vector<std::string> differencesOf(const std::vector<ExpectedCall>& expected,
                                       const std::vector<ExpectedCall>& actual) {
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
        } else if (a == actual.size() || (hasBoth && expected[e].timeNs <= actual[a].timeNs)) {
            lines.push_back(lineOf('-', expected[e++]));
        } else {
            lines.push_back(lineOf('+', actual[a++]));
        }
    }
    return lines;
}

}  // namespace replay
