#pragma once

// What was sent to the performance service and how long it was in force.

#include "replay/findings/Findings.h"
#include "replay/findings/FrameFindings.h"
#include "replay/play/Hints.h"

namespace replay {

// Given every event of the library in order, fills in boosts, releases, negative boosts and locks.
class ServiceFindings {
  public:
    explicit ServiceFindings(Findings& findings) : mFindings(findings) {}

    void take(const device::Event& event, int frame);
    void finish(int64_t endNs);

  private:
    void boost(const Hint& hint, int64_t timeNs, int frame);
    void release(int64_t timeNs, int frame);
    void negativeBoost(const Hint& hint, int64_t timeNs);
    void lock(const device::Event& event);
    void unlock(const device::Event& event);
    void endBoost(int64_t timeNs, BoostRecord::End how);
    void endNegativeBoost(int64_t timeNs);
    void sumUp();

    Findings& mFindings;
    bool mBoosted = false;  // the last record is in force, unless it has lapsed
    bool mLowered = false;
    struct HeldLock {
        int handle;
        std::vector<LockSpan>* spans;
        size_t index;
    };
    std::vector<HeldLock> mLocks;
    int64_t mUntilNs = 0;  // of the boost
    int64_t mLoweredUntilNs = 0;
};

}  // namespace replay
