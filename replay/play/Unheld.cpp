#include "replay/play/Unheld.h"

#include <algorithm>
#include <utility>

namespace replay {

namespace {

class Unheld {
  public:
    Unheld(const LayerEvents& captured, const VsyncTrack& vsyncs, const ModelOptions& model)
          : mModel(model), mBeats(vsyncs) {
        mEvents.pendingAtStart = mPending = captured.pendingAtStart;
        mShown = captured.queueTimesNs.empty() ? 0 : 1;
        composeNext();
    }

    LayerEvents play() {
        for (mFrame = 0; mFrame < mModel.work.size(); ++mFrame) {
            waitToBegin();
            sleepUntil(mNowNs + mModel.work[mFrame].workNs);
            mEvents.queueTimesNs.push_back(mNowNs);
            ++mPending;
        }
        while (mPending > 0) compose();
        return std::move(mEvents);
    }

  private:
    // Of two that wake at one time the one that lay down first comes first.
    struct Sleep {
        int64_t untilNs = 0;
        uint64_t order = 0;

        bool isBefore(const Sleep& other) const {
            return std::make_pair(untilNs, order) < std::make_pair(other.untilNs, other.order);
        }
    };

    void waitToBegin() {
        const FrameWork& frame = mModel.work[mFrame];
        const Make& make = mModel.make;
        const bool isFirst = mFrame == 0;
        sleepUntil(isFirst ? std::max<int64_t>(mModel.firstQueuedNs - frame.workNs, 0)
                           : readyNs(make, mBeats, frame, mNowNs, mReadyNs));
        if (make.kind == Make::Kind::kStages && !isFirst)
            sleepUntilAndWake(mFirstStageFromNs + frame.firstStageNs);
        mReadyNs = mFirstStageFromNs = mNowNs;
        while (mPending + mShown >= make.buffers) {
            mNowNs = mCompositor.untilNs;
            compose();
        }
        if (mNowNs > mReadyNs) sleepUntil(mNowNs + make.freeDelayNs);
        if (isFirst && make.kind == Make::Kind::kVsync) mReadyNs = mModel.firstQueuedNs;
    }

    // The game.
    void sleepUntil(int64_t timeNs) {
        if (timeNs <= mNowNs) return;
        const Sleep sleep{timeNs, ++mOrder};
        while (mCompositor.isBefore(sleep)) compose();
        mNowNs = timeNs;
    }

    // It goes on a little later if it did sleep.
    void sleepUntilAndWake(int64_t timeNs) {
        if (timeNs <= mNowNs) return;
        sleepUntil(timeNs);
        sleepUntil(mNowNs + mModel.make.wakeDelayNs);
    }

    void compose() {
        if (mPending > 0) {
            mShown = 1;
            mEvents.consumes.push_back({mCompositor.untilNs, --mPending});
        }
        composeNext();
    }

    void composeNext() {
        const std::vector<int64_t>& delays = mModel.latchDelaysNs;
        while (mVsync < delays.size() && delays[mVsync] == kNoLatch) ++mVsync;
        const int64_t delayNs = mVsync < delays.size() ? delays[mVsync] : mModel.latchDelayNs;
        mCompositor = {mBeats.timeNs(mVsync++) + delayNs, ++mOrder};
    }

    const ModelOptions& mModel;
    const Beats mBeats;
    LayerEvents mEvents;
    uint64_t mOrder = 0;
    // The compositor.
    Sleep mCompositor;
    size_t mVsync = 0;
    int mPending = 0;
    int mShown = 0;
    // The game, see ModelledPlayback.cpp.
    size_t mFrame = 0;
    int64_t mNowNs = -1;
    int64_t mReadyNs = 0;
    int64_t mFirstStageFromNs = 0;
};

}  // namespace

LayerEvents playUnheld(const LayerEvents& captured, const VsyncTrack& vsyncs,
                       const ModelOptions& model) {
    return Unheld(captured, vsyncs, model).play();
}

}  // namespace replay
