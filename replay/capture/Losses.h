#pragma once

// What a capture lacks although it could be read, and the rule for when too much is lacking.

#include <cstdint>
#include <functional>
#include <string>

#include "replay/capture/ByteSource.h"
#include "replay/capture/FrameTimeline.h"
#include "replay/capture/Scheduling.h"

namespace replay {

class Losses {
  public:
    // `unit` is what a format's damage is counted in, "line" or "packet".
    void noteGood() { ++mGood; }
    // Only the first damage is described, so only then `what` is asked.
    void noteDamage(const char* unit, const std::function<std::string()>& what);
    // The device itself dropped events; 0 if it does not say how many.
    void noteDropped(uint64_t events);
    // The end is missing; only the first reason is kept, as it is the cause of the others.
    void noteCutOff(const std::string& why);
    // A file of an archive that looks like a capture, but was not `read`, which was.
    void noteUnread(const std::string& file, const std::string& read);

    // A capture is used as far as it is whole: names of sections hold line breaks on real devices,
    // storage fails, transfers stop. But of a file that is mostly damage little can be believed,
    // and most likely it is no capture at all. Throws InputError then. Call it at the end, and now
    // and then before, so that a huge file of another kind is refused early.
    void requireMostlyGood(bool atEnd) const;

    // One line; empty if nothing is lacking.
    std::string describe() const;

  private:
    uint64_t mGood = 0;
    uint64_t mDamaged = 0;
    const char* mUnit = "";
    std::string mFirstDamage;
    uint64_t mDroppedEvents = 0;
    uint64_t mDropReports = 0;  // of unknown size
    std::string mCutOff;
    std::string mReadInstead;
    std::string mUnreadNames;
    uint64_t mUnread = 0;
};

// What all the stages that one file passes through have in common.
struct ReadContext {
    explicit ReadContext(const std::string& fileName) : name(fileName), budget(fileName) {}

    std::string name;
    Losses losses;
    UnpackBudget budget;
    SchedulingBuilder scheduling;
    FrameTimeline timeline;
};

}  // namespace replay
