#pragma once

// Why the library did what it did, told from its own log lines and markers just before on the same
// thread, and from what the compositor had reported by then.

#include <map>
#include <string>

#include "replay/base/Statistics.h"
#include "replay/findings/Findings.h"
#include "replay/findings/FrameFindings.h"
#include "replay/play/Hints.h"

namespace replay {

// Given every event of the library in order, fills in the decision log, the regulators, series,
// ping-pongs, errors, and why each frame was held. The frames must be there already.
class Narrator {
  public:
    Narrator(Findings& findings, const Run& run) : mFindings(findings), mRun(run) {}

    void take(const device::Event& event, int frame);
    void finish(int64_t endNs);

  private:
    // What one thread said last.
    struct Thread {
        std::string measured;   // the measuring period that closed, "59.71 frames/s"
        std::string powerStep;  // of power optimisation, in the period that closed last
        std::optional<int64_t> targetNs;
        int newCoefficient = 0;
        int oldCoefficient = 0;
        bool byMissedFrame = false;
    };

    void call(const device::Event& event, int frame);
    void log(const device::Event& event, int frame);
    void tuningLog(const device::Event& event, Thread& thread);
    void powerLog(const device::Event& event, Thread& thread);
    void marker(const device::Event& event, int frame);
    void hold(int frame, Frame::Hold why);
    void switchRegulator(Regulator& regulator, OnTimes& times, bool on, int64_t timeNs,
                         std::string reason);

    std::string causeOf(const device::Event& event, int frame, const Thread& thread);
    std::string causeOfHint(const Hint& hint, int64_t timeNs, int frame, const Thread& thread);
    std::string boostCause(int checkpoint, int64_t timeNs, int frame) const;
    std::string releaseCause(int64_t timeNs, int frame) const;
    std::string negativeBoostCause(int frame, const Thread& thread) const;
    std::string negativeReleaseCause(int64_t timeNs, int frame, const Thread& thread);
    std::string lockCause(const Thread& thread) const;
    std::string unlockCause(const Thread& thread) const;
    std::string questionCause(const device::Event& event, const Thread& thread) const;
    std::string frameRegulatorOffReason(const Thread& thread) const;
    std::string headroomSwitchReason(const device::Event& event, const Thread& thread);
    int64_t silenceNs(int64_t timeNs, int frame) const;
    void followCompositor(int64_t timeNs);

    Findings& mFindings;
    const Run& mRun;
    std::map<int, Thread> mThreads;
    OnTimes mFrameRegulatorTimes;
    OnTimes mHeadroomTimes;
    int mGrantedFrame = kNoFrame;  // whose monitor waited for accumulated buffers
    int mThreshold = 0;            // 0: not known
    size_t mFed = 0;
    int mAccumulated = 0;  // consumed buffers in a row that left others pending
    int mCompositorThread = -1;
    int64_t mInitEndNs = INT64_MIN;
};

}  // namespace replay
