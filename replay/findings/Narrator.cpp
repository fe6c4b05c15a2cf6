#include "replay/findings/Narrator.h"

#include <cstdlib>
#include <cstring>

#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int kLogError = 6;
constexpr char kModuleTag[] = "Cindral";
constexpr char kDecisionStart[] = "[GFAR:";
// The first property that is read for a layer rather than for the whole library.
constexpr char kEnvironmentProperty[] = "vendor.perf.pfar2.boost_level";

// The number after the first `mark` in the text.
std::optional<double> numberAfter(const std::string& text, const char* mark) {
    const size_t place = text.find(mark);
    if (place == std::string::npos) return std::nullopt;
    return std::strtod(text.c_str() + place + std::strlen(mark), nullptr);
}

bool isAction(const device::Event& event) {
    return hintOf(event).kind != Hint::Kind::kNone ||
           event.entryPoint == device::EntryPoint::kPerfLockAcq ||
           event.entryPoint == device::EntryPoint::kPerfLockRel;
}

void addSample(std::vector<Sample>& series, int64_t timeNs, std::optional<double> value) {
    if (value) series.push_back({timeNs, *value});
}

}  // namespace

void Narrator::take(const device::Event& event, int frame) {
    followCompositor(event.timeNs);
    switch (event.kind) {
        case device::EventKind::kServiceCall:
            return call(event, frame);
        case device::EventKind::kLog:
            return log(event, frame);
        case device::EventKind::kTraceBegin:
            mFindings.debugSeen = true;
            return marker(event, frame);
        case device::EventKind::kTraceEnd:
            return;
    }
}

void Narrator::finish(int64_t endNs) {
    mFrameRegulatorTimes.finish(endNs);
    mHeadroomTimes.finish(endNs);
    mFindings.frameRegulator.spans = mFrameRegulatorTimes.spans();
    mFindings.frameRegulator.onNs = mFrameRegulatorTimes.totalNs();
    mFindings.headroomRegulator.spans = mHeadroomTimes.spans();
    mFindings.headroomRegulator.onNs = mHeadroomTimes.totalNs();
}

void Narrator::followCompositor(int64_t timeNs) {
    for (; mFed < mRun.fed.size() && mRun.fed[mFed].deliveredNs <= timeNs; ++mFed) {
        const FedEvent& event = mRun.fed[mFed];
        if (event.kind == FedEvent::Kind::kInit) {
            mCompositorThread = event.thread;
            mInitEndNs = event.returnedNs;
        } else if (event.kind == FedEvent::Kind::kConsume) {
            mAccumulated = event.value >= 1 ? mAccumulated + 1 : 0;
        }
    }
}

void Narrator::call(const device::Event& event, int frame) {
    if (event.text == kEnvironmentProperty && !mFindings.environmentNs) {
        mFindings.environmentNs = event.timeNs;
    }
    Decision decision;
    decision.timeNs = event.timeNs;
    decision.thread = event.thread;
    decision.what = describe(event);
    decision.cause = causeOf(event, frame, mThreads[event.thread]);
    decision.frame = frame;
    decision.isAction = isAction(event);
    mFindings.log.push_back(std::move(decision));
}

void Narrator::log(const device::Event& event, int frame) {
    if (event.tag == kModuleTag && startsWith(event.text, kDecisionStart)) {
        mFindings.decision = event.text;
        return;
    }
    if (event.priority >= kLogError) {
        mFindings.errors.push_back(event.tag + ": " + event.text);
        return;
    }
    mFindings.debugSeen = true;
    Thread& thread = mThreads[event.thread];
    const int64_t now = event.timeNs;
    if (startsWith(event.text, "FPS:")) {
        const std::optional<double> fps = numberAfter(event.text, "FPS:");
        addSample(mFindings.measuredFps, now, fps);
        thread.measured = format("%.2f frames/s", *fps);
        thread.powerStep.clear();
    } else if (event.text == "enable FrameRegulator") {
        switchRegulator(mFindings.frameRegulator, mFrameRegulatorTimes, true, now,
                        thread.measured + " measured, the display's rate");
    } else if (event.text == "disable FrameRegulator") {
        switchRegulator(mFindings.frameRegulator, mFrameRegulatorTimes, false, now,
                        frameRegulatorOffReason(thread));
    } else if (event.text == "enable PHR" || event.text == "disable PHR") {
        switchRegulator(mFindings.headroomRegulator, mHeadroomTimes, event.text[0] == 'e', now,
                        headroomSwitchReason(event, thread));
    } else if (event.text == "accumulation delay") {
        hold(frame, Frame::Hold::kAccumulation);
    } else {
        tuningLog(event, thread);
        powerLog(event, thread);
    }
}

void Narrator::tuningLog(const device::Event& event, Thread& thread) {
    const std::string& text = event.text;
    const int64_t now = event.timeNs;
    if (startsWith(text, "negativeBoostAcq: ")) {
        thread.newCoefficient = static_cast<int>(numberAfter(text, "newCoe(").value_or(0));
        thread.oldCoefficient = static_cast<int>(numberAfter(text, "prevCoe(").value_or(0));
        addSample(mFindings.coefficient, now, thread.newCoefficient);
    } else if (startsWith(text, "renderTime(")) {
        thread.targetNs = static_cast<int64_t>(numberAfter(text, "targetRenderTime(").value_or(0));
    } else if (startsWith(text, "release negative boost by ")) {
        thread.byMissedFrame = text.find("perf") != std::string::npos;
    } else if (startsWith(text, "prev thresh:")) {
        mThreshold = static_cast<int>(numberAfter(text, "curr thresh:").value_or(0));
        addSample(mFindings.threshold, now, mThreshold);
    } else if (startsWith(text, "vsync: ")) {
        addSample(mFindings.headroomNs, now, numberAfter(text, "init headroom: "));
    }
}

void Narrator::powerLog(const device::Event& event, Thread& thread) {
    const std::string& text = event.text;
    if (startsWith(text, "pingpongCount(")) {
        mFindings.pingpongs.push_back({event.timeNs, Pingpong::Kind::kNegativeBoost});
    } else if (text == "pingpong occurs!") {
        mFindings.pingpongs.push_back({event.timeNs, Pingpong::Kind::kPowerOptimization});
        thread.powerStep = "frames were lost since they went off";
    } else if (text == "enable power opt.") {
        thread.powerStep = "three measuring periods at the display's rate";
    } else if (startsWith(text, "disable power opt")) {
        thread.powerStep = "the rate was not kept three times";
    }
}

void Narrator::marker(const device::Event& event, int frame) {
    const std::string& text = event.text;
    if (text == "delay finish") {
        hold(frame, Frame::Hold::kRelease);
    } else if (startsWith(text, "headroom = ")) {
        addSample(mFindings.headroomNs, event.timeNs, numberAfter(text, "= "));
    } else if (startsWith(text, "mBoostExpectationDegree = ")) {
        addSample(mFindings.boostExpectation, event.timeNs, numberAfter(text, "= "));
    } else if (startsWith(text, "additonal wait")) {
        mGrantedFrame = frame;
    }
}

void Narrator::hold(int frame, Frame::Hold why) {
    if (frame != kNoFrame) mFindings.frames[static_cast<size_t>(frame)].hold = why;
}

void Narrator::switchRegulator(Regulator& regulator, OnTimes& times, bool on, int64_t timeNs,
                               std::string reason) {
    if (on) {
        times.on(timeNs);
    } else {
        times.off(timeNs);
    }
    regulator.switches.push_back({timeNs, on, std::move(reason)});
}

// Only the queueing thread measures; the other one that switches it off is the monitor.
std::string Narrator::frameRegulatorOffReason(const Thread& thread) const {
    if (thread.measured.empty()) return "no buffer for a second after the last checkpoint";
    return thread.measured + " measured, not the display's rate";
}

std::string Narrator::headroomSwitchReason(const device::Event& event, const Thread& thread) {
    if (event.text == "enable PHR") {
        return format("%d buffers in a row were consumed with others pending", mAccumulated);
    }
    if (event.thread == mCompositorThread) return "the sixth stutter within 15 s";
    if (thread.measured.empty()) return "the frame regulator is off";
    return thread.measured + " measured, not the display's rate";
}

int64_t Narrator::silenceNs(int64_t timeNs, int frame) const {
    return frame == kNoFrame ? 0 : timeNs - mFindings.frames[static_cast<size_t>(frame)].returnedNs;
}

std::string Narrator::causeOf(const device::Event& event, int frame, const Thread& thread) {
    const Hint hint = hintOf(event);
    if (hint.kind != Hint::Kind::kNone) return causeOfHint(hint, event.timeNs, frame, thread);
    if (event.entryPoint == device::EntryPoint::kPerfLockAcq) return lockCause(thread);
    if (event.entryPoint == device::EntryPoint::kPerfLockRel) return unlockCause(thread);
    return questionCause(event, thread);
}

std::string Narrator::causeOfHint(const Hint& hint, int64_t timeNs, int frame,
                                  const Thread& thread) {
    switch (hint.kind) {
        case Hint::Kind::kBoost:
            return boostCause(hint.checkpoint, timeNs, frame);
        case Hint::Kind::kRelease:
            return releaseCause(timeNs, frame);
        case Hint::Kind::kNegativeBoost:
            return negativeBoostCause(frame, thread);
        case Hint::Kind::kNegativeRelease:
            return negativeReleaseCause(timeNs, frame, thread);
        default:
            return "";
    }
}

std::string Narrator::boostCause(int checkpoint, int64_t timeNs, int frame) const {
    std::string text = format("checkpoint %d: no buffer for %s", checkpoint,
                              msText(silenceNs(timeNs, frame)).c_str());
    if (frame != kNoFrame && frame == mGrantedFrame) {
        text += ", a period more than usual as buffers were pending";
    }
    return text;
}

std::string Narrator::releaseCause(int64_t timeNs, int frame) const {
    if (frame == kNoFrame) return "";
    const Frame& queued = mFindings.frames[static_cast<size_t>(frame)];
    // Short boosts are left to lapse: what was asked for then is served with the next wake-up.
    if (timeNs > queued.returnedNs) {
        return format("frame %d asked for it, and the boost thread woke up only now", frame);
    }
    return format("frame %d was queued, %s after the one before", frame,
                  msText(queued.intervalNs).c_str());
}

std::string Narrator::negativeBoostCause(int frame, const Thread& thread) const {
    if (!thread.targetNs || frame == kNoFrame) return "";
    if (thread.newCoefficient == thread.oldCoefficient) {
        return "kept alive: last refreshed more than 500 ms ago";
    }
    return format("frame %d took %s, less than the target of %s: strength %d to %d", frame,
                  msText(mFindings.frames[static_cast<size_t>(frame)].renderNs).c_str(),
                  msText(*thread.targetNs).c_str(), -thread.oldCoefficient, -thread.newCoefficient);
}

std::string Narrator::negativeReleaseCause(int64_t timeNs, int frame, const Thread& thread) {
    if (!mFindings.debugSeen || frame == kNoFrame) return "";
    addSample(mFindings.coefficient, timeNs, 0);
    // Sorted in by ServiceFindings, which cannot know why.
    if (!mFindings.negativeReleases.empty()) {
        mFindings.negativeReleases.back().byMissedFrame = thread.byMissedFrame;
    }
    if (thread.byMissedFrame) {
        return "missed frame: no buffer for " + msText(silenceNs(timeNs, frame));
    }
    const int64_t renderNs = mFindings.frames[static_cast<size_t>(frame)].renderNs;
    std::string text =
            format("frame %d took %s, more than the target", frame, msText(renderNs).c_str());
    const int64_t periodNs = mFindings.refresh.periodAt(timeNs);
    if (mThreshold != 0) text += " of " + msText(periodNs * mThreshold / 100);
    return text;
}

std::string Narrator::lockCause(const Thread& thread) const {
    if (thread.powerStep.empty()) return "";
    return thread.powerStep + ", " + thread.measured + " last";
}

std::string Narrator::unlockCause(const Thread& thread) const {
    if (!thread.powerStep.empty()) return thread.powerStep;
    if (!thread.measured.empty()) return thread.measured + " measured, not the display's rate";
    return mFindings.debugSeen ? "the frame regulator is off" : "";
}

std::string Narrator::questionCause(const device::Event& event, const Thread& thread) const {
    if (event.timeNs <= mInitEndNs) return "initialisation: which features run";
    if (event.entryPoint == device::EntryPoint::kPerfGetFeedback) {
        return "a buffer of an unknown layer: is it a game?";
    }
    if (!thread.measured.empty()) {
        return thread.measured + " measured, the display's rate: the environment is built";
    }
    return "";
}

}  // namespace replay
