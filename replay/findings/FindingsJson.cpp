// The fields are documented in docs/json.md, and a test compares the two.

#include <nlohmann/json.hpp>

#include <cmath>

#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/findings/Findings.h"
#include "replay/findings/FrameParts.h"
#include "tracker/FrameRules.h"

namespace replay {

namespace {

using Json = nlohmann::json;

constexpr int kSchema = 1;

Json timeOrNull(const std::optional<int64_t>& timeNs) {
    return timeNs ? Json(*timeNs) : Json();
}

template <typename List, typename Convert>
Json listOf(const List& list, Convert&& convert) {
    Json result = Json::array();
    for (const auto& item : list) result.push_back(convert(item));
    return result;
}

Json toJson(const Parts& parts) {
    Json json = Json::object();
    for (size_t i = 0; i < kParts; ++i) json[fieldOf(static_cast<Part>(i))] = parts[i];
    return json;
}

Json toJson(const Frame& frame, const Findings& findings) {
    const auto phone = static_cast<size_t>(frame.phone);
    return {{"phone", frame.phone == kNoFrame ? Json() : Json(verdictOf(findings.phone[phone]))},
            {"due_ns", frame.dueNs},
            {"queued_ns", frame.queuedNs},
            {"returned_ns", frame.returnedNs},
            {"latched_ns", timeOrNull(frame.latchedNs)},
            {"shown_ns", timeOrNull(frame.shownNs)},
            {"shown_late_vsyncs", frame.shownLateVsyncs},
            {"period_ns", frame.periodNs},
            {"interval_ns", frame.intervalNs},
            {"render_ns", frame.renderNs},
            {"pending", frame.pending},
            {"late", frame.late},
            {"late_vsyncs", frame.lateVsyncs},
            {"hold", toString(frame.hold)},
            {"parts", toJson(frame.parts)},
            {"late_because", frame.late ? Json(causeText(frame.because)) : Json()}};
}

Json toJson(const BoostRecord& boost) {
    return {{"begin_ns", boost.beginNs},
            {"end_ns", boost.endNs},
            {"checkpoint", boost.checkpoint},
            {"duration_ms", boost.durationMs},
            {"type", boost.type},
            {"end", toString(boost.end)},
            {"frame", boost.frame}};
}

Json toJson(const LockSpan& span) {
    return {{"begin_ns", span.beginNs}, {"end_ns", span.endNs}, {"released", span.released}};
}

Json toJson(const Decision& decision, const std::vector<std::string>& threadNames) {
    return {{"time_ns", decision.timeNs},
            {"thread", threadNames.at(static_cast<size_t>(decision.thread))},
            {"what", decision.what},
            {"cause", decision.cause},
            {"frame", decision.frame},
            {"action", decision.isAction}};
}

Json switchesJson(const Regulator& regulator) {
    return listOf(regulator.switches, [](const RegulatorSwitch& change) {
        return Json{{"time_ns", change.timeNs}, {"on", change.on}, {"reason", change.reason}};
    });
}

Json seriesJson(const std::vector<Sample>& series) {
    return listOf(series, [](const Sample& sample) {
        return Json::array({sample.timeNs, sample.value});
    });
}

Json figuresJson(const Findings& findings) {
    Json result = Json::object();
    for (const Figure& figure : figures()) {
        const double value = figure.of(findings);
        if (std::isnan(value)) {
            result[figure.name] = nullptr;
        } else if (figure.isCount()) {
            result[figure.name] = static_cast<int64_t>(value);
        } else {
            result[figure.name] = value;
        }
    }
    return result;
}

Json inputJson(const Findings& findings) {
    Json conditions = Json::object();
    for (const auto& [name, value] : findings.conditions) conditions[name] = value;
    const Json changes = listOf(findings.refresh.changes, [](const RateChange& change) {
        return Json{{"time_ns", change.timeNs},
                    {"period_ns", change.periodNs},
                    {"class", android::cindral::displayClassOf(change.periodNs)}};
    });
    return {{"schema", kSchema},
            {"source", findings.source},
            {"layer", findings.layer},
            {"conditions", conditions},
            {"modelled", findings.modelled},
            {"capture",
             {{"origin_ns", findings.originNs},
              {"duration_ns", findings.durationNs},
              {"frames", findings.capturedFrames},
              {"latches", findings.capturedLatches},
              {"replaced", findings.capturedReplaced},
              {"damage", findings.damage}}},
            {"refresh",
             {{"period_ns", findings.refresh.periodNs},
              {"class", android::cindral::displayClassOf(findings.refresh.periodNs)},
              {"counter", findings.refreshSource},
              {"continued_vsyncs", findings.continuedVsyncs},
              {"changes", changes}}},
            {"end_ns", findings.endNs}};
}

Json toJson(const Reproduction::Figures& figures) {
    return {{"frames_per_second", figures.framesPerSecond},
            {"late_frames", figures.lateFrames},
            {"stutters", figures.stutters},
            {"latency_p50_ms", toMs(figures.latencyP50Ns)}};
}

// Null if nothing was modelled, or there is no capture to give back.
Json toJson(const std::optional<Reproduction>& reproduction) {
    if (!reproduction) return {};
    return {{"holds", reproduction->holds()},
            {"misses", reproduction->misses()},
            {"captured", toJson(reproduction->captured)},
            {"modelled", toJson(reproduction->modelled)},
            {"game", reproduction->game},
            {"runner_up", reproduction->runnerUp},
            {"measured", reproduction->measured},
            {"work_p50_ms", toMs(reproduction->workP50Ns)}};
}

Json causesJson(const Findings& findings) {
    Json causes = Json::array();
    for (size_t i = 0; i < kParts; ++i) {
        if (findings.lateBecause[i] > 0)
            causes.push_back({{"cause", causeText(static_cast<Part>(i))},
                              {"frames", findings.lateBecause[i]}});
    }
    return causes;
}

Json libraryJson(const Findings& findings) {
    return {{"used", findings.withLibrary},
            {"decision", findings.decision},
            {"debug", findings.debugSeen},
            {"environment_ns", timeOrNull(findings.environmentNs)},
            {"errors", findings.errors}};
}

Json neverJson(const Never& never) {
    const auto reason = [](const std::string& text) { return text.empty() ? Json() : Json(text); };
    return {{"environment", reason(never.environment)},
            {"frame_regulator", reason(never.frameRegulator)},
            {"headroom_regulator", reason(never.headroomRegulator)},
            {"negative_boost", reason(never.negativeBoost)},
            {"pl_off", reason(never.plOff)},
            {"core_control_off", reason(never.coreControlOff)}};
}

Json pingpongsJson(const Findings& findings) {
    return listOf(findings.pingpongs, [](const Pingpong& pingpong) {
        return Json{{"time_ns", pingpong.timeNs}, {"kind", toString(pingpong.kind)}};
    });
}

Json worstJson(const Findings& findings) {
    return listOf(findings.worst, [&](int index) {
        Json frame = toJson(findings.frames[static_cast<size_t>(index)], findings);
        frame["index"] = index;
        return frame;
    });
}

Json allSeriesJson(const Findings& findings) {
    return {{"headroom_ns", seriesJson(findings.headroomNs)},
            {"coefficient", seriesJson(findings.coefficient)},
            {"threshold_percent", seriesJson(findings.threshold)},
            {"boost_expectation", seriesJson(findings.boostExpectation)},
            {"measured_fps", seriesJson(findings.measuredFps)},
            {"queue_depth", seriesJson(findings.queueDepth)}};
}

void addHints(Json& json, const Findings& findings) {
    const auto plain = [](const auto& record) { return toJson(record); };
    json["boosts"] = listOf(findings.boosts, plain);
    json["releases"] = listOf(findings.releases, [](const ReleaseRecord& release) {
        return Json{{"time_ns", release.timeNs},
                    {"was_boosted", release.wasBoosted},
                    {"frame", release.frame}};
    });
    json["negative_boosts"] = listOf(findings.negativeBoosts, [](const NegativeBoostRecord& boost) {
        return Json{{"begin_ns", boost.beginNs},
                    {"end_ns", boost.endNs},
                    {"strength_percent", boost.strength}};
    });
    json["negative_releases"] = listOf(findings.negativeReleases, [](const NegativeReleaseRecord&
                                                                             release) {
        return Json{{"time_ns", release.timeNs}, {"by_missed_frame", release.byMissedFrame}};
    });
    json["pl_off"] = listOf(findings.plOff, plain);
    json["core_control_off"] = listOf(findings.coreControlOff, plain);
}

void addEverything(Json& json, const Findings& findings) {
    json["frames"] =
            listOf(findings.frames, [&](const Frame& frame) { return toJson(frame, findings); });
    json["stutters"] = listOf(findings.stutters, [](const Stutter& stutter) {
        return Json{{"time_ns", stutter.timeNs}, {"vsyncs", stutter.vsyncs}};
    });
    json["vsyncs_ns"] = findings.vsyncsNs;
    addHints(json, findings);
    json["series"] = allSeriesJson(findings);
    json["log"] = listOf(findings.log, [&](const Decision& decision) {
        return toJson(decision, findings.threadNames);
    });
}

}  // namespace

nlohmann::json toJson(const Findings& findings, Detail detail) {
    Json json = inputJson(findings);
    json["library"] = libraryJson(findings);
    json["reproduction"] = toJson(findings.reproduction);
    json["figures"] = figuresJson(findings);
    json["never"] = neverJson(findings.never);
    json["late_because"] = causesJson(findings);
    json["regulators"] = {{"frame", switchesJson(findings.frameRegulator)},
                          {"headroom", switchesJson(findings.headroomRegulator)}};
    json["pingpongs"] = pingpongsJson(findings);
    json["worst_frames"] = worstJson(findings);
    if (detail == Detail::kEverything) addEverything(json, findings);
    return json;
}

}  // namespace replay
