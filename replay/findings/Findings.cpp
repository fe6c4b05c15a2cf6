#include "replay/findings/Findings.h"

#include <algorithm>
#include <cstdlib>

#include "replay/base/Statistics.h"
#include "replay/findings/FrameFindings.h"
#include "replay/findings/FrameParts.h"
#include "replay/findings/Narrator.h"
#include "replay/findings/Never.h"
#include "replay/findings/ServiceFindings.h"

namespace replay {

namespace {

std::string describeDamage(const Capture& capture) {
    std::string text = capture.lost;
    if (capture.outOfOrder > 0) {
        text += (text.empty() ? "" : "; ") + std::to_string(capture.outOfOrder) +
                " lines out of order, sorted";
    }
    return text;
}

void addInput(Findings& findings, const Capture& capture, const LayerEvents& layer,
              const VsyncTrack& vsyncs) {
    findings.source = capture.source;
    findings.layer = layer.name.layer;
    findings.damage = describeDamage(capture);
    findings.originNs = capture.originNs;
    findings.durationNs = capture.durationNs;
    findings.capturedFrames = layer.queueTimesNs.size();
    findings.capturedLatches = layer.consumes.size();
    findings.capturedReplaced = layer.replacedTimesNs.size();
    findings.capturedIntervalsNs = differences(layer.queueTimesNs);
    findings.refresh = vsyncs;
    findings.refreshSource = vsyncs.source;
    findings.continuedVsyncs = vsyncs.continued;
}

// The phone's frames end when the application has finished them, which is about when it queues them.
void addPhone(Findings& findings, const Capture& capture) {
    auto& frames = findings.frames;
    const auto isBefore = [](const Frame& frame, int64_t timeNs) { return frame.dueNs < timeNs; };
    for (const TimelineFrame& phone : capture.timeline) {
        if (phone.layer.find(findings.layer) == std::string::npos) continue;
        auto nearest = std::lower_bound(frames.begin(), frames.end(), phone.endNs, isBefore);
        const bool earlier = nearest != frames.begin() &&
                             (nearest == frames.end() ||
                              phone.endNs - (nearest - 1)->dueNs < nearest->dueNs - phone.endNs);
        if (earlier) --nearest;
        const bool isIts = nearest != frames.end() && nearest->phone == kNoFrame &&
                           std::abs(nearest->dueNs - phone.endNs) < nearest->periodNs;
        if (isIts) nearest->phone = static_cast<int>(findings.phone.size());
        findings.phone.push_back(phone);
    }
}

void addLibrary(Findings& findings, const Run& run) {
    ServiceFindings service(findings);
    Narrator narrator(findings, run);
    FrameCursor frames(findings.frames);
    for (const device::Event& event : run.seen) {
        const int frame = frames.at(event.timeNs);
        service.take(event, frame);
        narrator.take(event, frame);
    }
    service.finish(run.endNs);
    narrator.finish(run.endNs);
}

}  // namespace

Findings findingsOf(const Capture& capture, const LayerEvents& layer, const VsyncTrack& vsyncs,
                    const Run& run) {
    Findings findings;
    addInput(findings, capture, layer, vsyncs);
    findings.conditions = run.conditions;
    findings.withLibrary = run.withLibrary;
    findings.modelled = run.modelled;
    findings.endNs = run.endNs;
    for (size_t i = 0; i < run.threadNames.size(); ++i) {
        findings.threadNames.push_back(run.threadName(static_cast<int>(i)));
    }
    addFrames(findings, run, layer.pendingAtStart);
    if (!run.modelled) addPhone(findings, capture);
    addParts(findings, capture, layer, run);
    addLibrary(findings, run);
    addNever(findings, run);
    return findings;
}

const char* toString(Frame::Hold hold) {
    switch (hold) {
        case Frame::Hold::kNone:
            return "none";
        case Frame::Hold::kRelease:
            return "release";
        case Frame::Hold::kAccumulation:
            return "accumulation";
    }
    return "";
}

const char* toString(BoostRecord::End end) {
    switch (end) {
        case BoostRecord::End::kReleased:
            return "released";
        case BoostRecord::End::kReplaced:
            return "replaced";
        case BoostRecord::End::kLapsed:
            return "lapsed";
        case BoostRecord::End::kRunEnded:
            return "run-ended";
    }
    return "";
}

const char* toString(Pingpong::Kind kind) {
    return kind == Pingpong::Kind::kPowerOptimization ? "power-optimization" : "negative-boost";
}

}  // namespace replay
