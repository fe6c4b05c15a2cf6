#include "replay/report/ReportData.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <map>

#include "replay/findings/FrameParts.h"
#include "replay/report/Column.h"
#include "replay/report/Html.h"

namespace replay {

namespace {

using nlohmann::json;

constexpr int64_t kNotLatched = -1;
// A replay as captured may queue a buffer after the vsync that showed it.
constexpr int64_t kNotShown = INT64_MIN / 2;
constexpr int kFlagLate = 1;
constexpr int kHoldShift = 1;
// Of the quantities that are no times, which have no more digits than this.
constexpr double kThousandths = 1000;

json frameColumns(const std::vector<Frame>& frames) {
    return {
            {"queued", columnOf(frames, [](const Frame& f) { return f.queuedNs; })},
            {"period", columnOf(frames, [](const Frame& f) { return f.periodNs; })},
            {"held", columnOf(frames, [](const Frame& f) { return f.heldNs(); })},
            {"delay", columnOf(frames, [](const Frame& f) { return f.delayNs(); })},
            {"latency", columnOf(frames,
                                 [](const Frame& f) {
                                     return f.latchedNs ? *f.latchedNs - f.queuedNs : kNotLatched;
                                 })},
            {"shown", columnOf(frames,
                               [](const Frame& f) {
                                   return f.shownNs ? *f.shownNs - f.queuedNs : kNotShown;
                               })},
            {"shownLate", columnOf(frames, [](const Frame& f) { return f.shownLateVsyncs; })},
            {"render", columnOf(frames, [](const Frame& f) { return f.renderNs; })},
            {"phone", columnOf(frames, [](const Frame& f) { return f.phone; })},
            {"pending", columnOf(frames, [](const Frame& f) { return f.pending; })},
            {"flags", columnOf(frames,
                               [](const Frame& f) {
                                   return (f.late ? kFlagLate : 0) | static_cast<int>(f.hold)
                                                                             << kHoldShift;
                               })},
    };
}

// By the names of the parts; those that no frame has are left out.
json partColumns(const Findings& findings) {
    json columns = json::object();
    for (size_t i = 0; i < kParts; ++i) {
        const auto hasPart = [&](const Frame& frame) { return frame.parts[i] != 0; };
        if (std::any_of(findings.frames.begin(), findings.frames.end(), hasPart))
            columns[partText(static_cast<Part>(i))] =
                    columnOf(findings.frames, [&](const Frame& frame) { return frame.parts[i]; });
    }
    return columns;
}

json sampleColumns(const std::vector<Sample>& samples, double scale) {
    return {
            {"time", columnOf(samples, [](const Sample& s) { return s.timeNs; })},
            {"value",
             columnOf(samples, [&](const Sample& s) { return std::llround(s.value * scale); })},
    };
}

template <typename List>
json spanColumns(const List& spans) {
    return {
            {"time", columnOf(spans, [](const auto& s) { return s.beginNs; })},
            {"length", columnOf(spans, [](const auto& s) { return s.endNs - s.beginNs; })},
    };
}

template <typename List>
json timeColumn(const List& events) {
    return {{"time", columnOf(events, [](const auto& e) { return e.timeNs; })}};
}

json regulator(const Regulator& regulator) {
    json spans = json::array();
    for (const auto& [beginNs, endNs] : regulator.spans) spans.push_back({beginNs, endNs});
    return {{"spans", spans}};
}

// Most entries say one of a few things.
class Texts {
  public:
    int64_t number(const std::string& text) {
        const auto [found, isNew] = mNumbers.try_emplace(text, mTexts.size());
        if (isNew) mTexts.push_back(text);
        return static_cast<int64_t>(found->second);
    }
    json take() { return std::move(mTexts); }

  private:
    std::map<std::string, size_t> mNumbers;
    json::array_t mTexts;
};

// The regulators' switches stand in the log too: they are decisions, with a reason each.
void addSwitches(std::vector<Decision>& log, const Findings& findings, const Regulator& regulator,
                 const char* name) {
    for (const RegulatorSwitch& change : regulator.switches) {
        const auto after = std::upper_bound(
                findings.frames.begin(), findings.frames.end(), change.timeNs,
                [](int64_t timeNs, const Frame& frame) { return timeNs < frame.queuedNs; });
        Decision decision;
        decision.timeNs = change.timeNs;
        decision.what = std::string(name) + (change.on ? " on" : " off");
        decision.cause = change.reason;
        decision.frame = static_cast<int>(after - findings.frames.begin()) - 1;
        decision.isAction = true;
        log.push_back(decision);
    }
}

std::vector<Decision> allDecisions(const Findings& findings) {
    std::vector<Decision> log;
    const std::vector<Decision> late = lateFrames(findings);
    log.insert(log.end(), late.begin(), late.end());
    addSwitches(log, findings, findings.frameRegulator, "frame regulator");
    addSwitches(log, findings, findings.headroomRegulator, "headroom regulator");
    log.insert(log.end(), findings.log.begin(), findings.log.end());
    std::stable_sort(log.begin(), log.end(),
                     [](const Decision& a, const Decision& b) { return a.timeNs < b.timeNs; });
    return log;
}

json decisionLog(const Findings& findings) {
    const std::vector<Decision> log = allDecisions(findings);
    Texts texts;
    json columns = timeColumn(log);
    columns["what"] = columnOf(log, [&](const Decision& d) { return texts.number(d.what); });
    columns["cause"] = columnOf(log, [&](const Decision& d) { return texts.number(d.cause); });
    columns["frame"] = columnOf(log, [](const Decision& d) { return d.frame; });
    columns["action"] = columnOf(log, [](const Decision& d) { return d.isAction ? 1 : 0; });
    return {{"columns", columns}, {"texts", texts.take()}};
}

json phoneVerdicts(const Findings& findings) {
    json verdicts = json::array();
    for (const TimelineFrame& frame : findings.phone) verdicts.push_back(verdictOf(frame));
    return verdicts;
}

json series(const Findings& findings) {
    return {
            {"headroom", sampleColumns(findings.headroomNs, 1)},
            {"coefficient", sampleColumns(findings.coefficient, kThousandths)},
            {"threshold", sampleColumns(findings.threshold, kThousandths)},
            {"boostExpectation", sampleColumns(findings.boostExpectation, kThousandths)},
            {"measuredFps", sampleColumns(findings.measuredFps, kThousandths)},
            {"queueDepth", sampleColumns(findings.queueDepth, 1)},
    };
}

void addHints(json& run, const Findings& findings) {
    run["boosts"] = spanColumns(findings.boosts);
    run["boosts"]["checkpoint"] =
            columnOf(findings.boosts, [](const BoostRecord& b) { return b.checkpoint; });
    run["releases"] = timeColumn(findings.releases);
    run["lowered"] = spanColumns(findings.negativeBoosts);
    run["lowered"]["strength"] = columnOf(findings.negativeBoosts,
                                          [](const NegativeBoostRecord& b) { return b.strength; });
    run["loweredEnds"] = timeColumn(findings.negativeReleases);
    run["plOff"] = spanColumns(findings.plOff);
    run["coreControlOff"] = spanColumns(findings.coreControlOff);
    run["frameRegulator"] = regulator(findings.frameRegulator);
    run["headroomRegulator"] = regulator(findings.headroomRegulator);
    run["stutters"] = timeColumn(findings.stutters);
    run["pingpongs"] = timeColumn(findings.pingpongs);
}

json runData(const ReportRun& run, const Findings* previous) {
    const Findings& findings = *run.findings;
    const bool sharesVsyncs = previous != nullptr && previous->vsyncsNs == findings.vsyncsNs;
    json data = {
            {"label", run.label},
            {"periodNs", findings.refresh.longestPeriodNs()},
            {"durationNs", findings.durationNs},
            {"frames", frameColumns(findings.frames)},
            {"parts", partColumns(findings)},
            {"series", series(findings)},
            {"log", decisionLog(findings)},
            {"phone", phoneVerdicts(findings)},
    };
    data["vsyncs"] = sharesVsyncs ? json(nullptr)
                                  : json(columnOf(findings.vsyncsNs, [](int64_t t) { return t; }));
    addHints(data, findings);
    return data;
}

}  // namespace

void writeReportData(std::ostream& out, const std::vector<ReportRun>& runs) {
    // One run at a time: several long ones would not fit into the tool's memory.
    out << "{\"runs\":[";
    const Findings* previous = nullptr;
    for (const ReportRun& run : runs) {
        out << (previous == nullptr ? "\n" : ",\n") << scriptJson(runData(run, previous));
        previous = run.findings;
    }
    out << "\n]}";
}

}  // namespace replay
