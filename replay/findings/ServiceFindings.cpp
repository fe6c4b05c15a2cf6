#include "replay/findings/ServiceFindings.h"

#include <algorithm>
#include <cstdlib>

namespace replay {

void ServiceFindings::take(const device::Event& event, int frame) {
    if (event.kind != device::EventKind::kServiceCall) return;
    if (event.entryPoint == device::EntryPoint::kPerfLockAcq) return lock(event);
    if (event.entryPoint == device::EntryPoint::kPerfLockRel) return unlock(event);
    const Hint hint = hintOf(event);
    switch (hint.kind) {
        case Hint::Kind::kNone:
            return;
        case Hint::Kind::kUnknown:
            ++mFindings.unknownCalls;
            return;
        case Hint::Kind::kBoost:
            return boost(hint, event.timeNs, frame);
        case Hint::Kind::kRelease:
            return release(event.timeNs, frame);
        case Hint::Kind::kNegativeBoost:
            return negativeBoost(hint, event.timeNs);
        case Hint::Kind::kNegativeRelease:
            mFindings.negativeReleases.push_back({event.timeNs, false});
            return endNegativeBoost(event.timeNs);
    }
}

void ServiceFindings::boost(const Hint& hint, int64_t timeNs, int frame) {
    endBoost(timeNs, BoostRecord::End::kReplaced);
    BoostRecord record;
    record.beginNs = timeNs;
    record.checkpoint = hint.checkpoint;
    record.durationMs = hint.durationMs;
    record.type = hint.type;
    record.frame = frame;
    mFindings.boosts.push_back(record);
    ++mFindings.boostsByCheckpoint[static_cast<size_t>(hint.checkpoint - 1)];
    mBoosted = true;
    mUntilNs = timeNs + hint.durationNs();
}

void ServiceFindings::release(int64_t timeNs, int frame) {
    mFindings.releases.push_back({timeNs, mBoosted && timeNs < mUntilNs, frame});
    endBoost(timeNs, BoostRecord::End::kReleased);
}

void ServiceFindings::endBoost(int64_t timeNs, BoostRecord::End how) {
    if (!mBoosted) return;
    BoostRecord& record = mFindings.boosts.back();
    record.endNs = std::min(timeNs, mUntilNs);
    record.end = mUntilNs <= timeNs ? BoostRecord::End::kLapsed : how;
    mBoosted = false;
}

void ServiceFindings::negativeBoost(const Hint& hint, int64_t timeNs) {
    endNegativeBoost(timeNs);
    mFindings.negativeBoosts.push_back({timeNs, timeNs, hint.strength});
    mLowered = true;
    mLoweredUntilNs = timeNs + hint.durationNs();
}

void ServiceFindings::endNegativeBoost(int64_t timeNs) {
    if (mLowered) mFindings.negativeBoosts.back().endNs = std::min(timeNs, mLoweredUntilNs);
    mLowered = false;
}

void ServiceFindings::lock(const device::Event& event) {
    const Feature feature = lockedFeature(event);
    if (feature == Feature::kUnknown) {
        ++mFindings.unknownCalls;
        return;
    }
    auto& spans = feature == Feature::kPl ? mFindings.plOff : mFindings.coreControlOff;
    mLocks.push_back({std::atoi(event.result.c_str()), &spans, spans.size()});
    spans.push_back({event.timeNs, event.timeNs, false});
}

void ServiceFindings::unlock(const device::Event& event) {
    const auto found = std::find_if(mLocks.begin(), mLocks.end(), [&](const HeldLock& held) {
        return !event.arguments.empty() && held.handle == event.arguments[0];
    });
    if (found == mLocks.end()) {
        ++mFindings.unknownCalls;
        return;
    }
    LockSpan& span = (*found->spans)[found->index];
    span.endNs = event.timeNs;
    span.released = true;
    mLocks.erase(found);
}

void ServiceFindings::finish(int64_t endNs) {
    endBoost(endNs, BoostRecord::End::kRunEnded);
    endNegativeBoost(endNs);
    for (const HeldLock& held : mLocks) (*held.spans)[held.index].endNs = endNs;
    mLocks.clear();
    sumUp();
}

void ServiceFindings::sumUp() {
    for (const BoostRecord& boost : mFindings.boosts) {
        mFindings.boostedNs += boost.endNs - boost.beginNs;
        const bool never =
                boost.end == BoostRecord::End::kLapsed || boost.end == BoostRecord::End::kRunEnded;
        if (!never) continue;
        ++mFindings.boostsNeverReleased;
        if (boost.checkpoint == Findings::kCheckpoints) ++mFindings.longBoostsNeverReleased;
    }
    double weighted = 0;
    for (const NegativeBoostRecord& boost : mFindings.negativeBoosts) {
        const int64_t lengthNs = boost.endNs - boost.beginNs;
        mFindings.loweredNs += lengthNs;
        weighted += static_cast<double>(lengthNs) * boost.strength;
    }
    if (mFindings.loweredNs > 0) {
        mFindings.meanStrength = weighted / static_cast<double>(mFindings.loweredNs);
    }
    for (const LockSpan& span : mFindings.plOff) mFindings.plOffNs += span.endNs - span.beginNs;
    for (const LockSpan& span : mFindings.coreControlOff) {
        mFindings.coreControlOffNs += span.endNs - span.beginNs;
    }
}

}  // namespace replay
