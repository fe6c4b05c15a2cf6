// A closed loop: a game that starts a frame when its make lets it and a buffer is free, and a compositor that latches one buffer a vsync. The rules are in docs/model.md.

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "replay/play/Playback.h"

namespace replay {

namespace {

// Every frame can be held for about two periods and wait as long for its buffer.
constexpr int64_t kPeriodsPerFrame = 6;

// The layer's buffers: queued ones, the one on the screen, and the one that is worked on.
class BufferQueue {
  public:
    // A game that was captured has shown something before.
    BufferQueue(int buffers, int pending, bool hasShown)
          : mBuffers(buffers), mPending(pending), mShown(hasShown ? 1 : 0) {}

    // Since when there has been one.
    int64_t waitForFreeBuffer() {
        std::unique_lock<std::mutex> lock(mLock);
        mFreed.wait(lock, [this] { return mPending + mShown < mBuffers; });
        return mFreeSinceNs;
    }

    void queue() {
        const std::lock_guard<std::mutex> guard(mLock);
        ++mPending;
    }

    // How many are left after one was latched; nothing if there was none. The one that was on the
    // screen is free again.
    std::optional<int> latch() {
        const std::lock_guard<std::mutex> guard(mLock);
        if (mPending == 0) return std::nullopt;
        const bool wasFull = mPending + mShown >= mBuffers;
        --mPending;
        mShown = 1;
        if (wasFull) mFreeSinceNs = sim::now();
        mFreed.notify_one();
        return mPending;
    }

    void close() {
        const std::lock_guard<std::mutex> guard(mLock);
        mClosed = true;
    }

    // The game has ended and everything it queued was shown.
    bool isDrained() {
        const std::lock_guard<std::mutex> guard(mLock);
        return mClosed && mPending == 0;
    }

  private:
    const int mBuffers;
    std::mutex mLock;  // guards all below
    std::condition_variable mFreed;
    int mPending;
    int mShown;
    int64_t mFreeSinceNs = 0;  // virtual time
    bool mClosed = false;
};

class ModelledPlayback : public Playback {
  public:
    ModelledPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs, const PlayOptions& options)
          : Playback(layer, vsyncs, options),
            mModel(*options.model),
            mBeats(vsyncs),
            mQueue(mModel.make.buffers, layer.pendingAtStart, !layer.queueTimesNs.empty()),
            mClocks(mModel.effects) {}

    size_t eventCount() const override {
        return static_cast<size_t>(lengthNs() / std::max<int64_t>(mVsyncs.periodNs, 1)) * 3;
    }

    int64_t lengthNs() const override {
        int64_t workNs = mModel.firstQueuedNs;
        for (const FrameWork& frame : mModel.work)
            workNs += frame.workNs + frame.firstStageNs + mModel.make.timerNs;
        const auto frames = static_cast<int64_t>(mModel.work.size());
        return workNs * slowestShare() + frames * kPeriodsPerFrame * mVsyncs.longestPeriodNs();
    }

    std::vector<FrameRoad> takeRoads() override { return std::move(mRoads); }

    void onSeen(const device::Event& event) override {
        if (mModel.effects.any()) mClocks.onCall(event);
    }

  private:
    // How many times longer work can take, rounded up: no hint is stronger than its 16 bits say,
    // but those beyond 100 % are no strengths.
    int64_t slowestShare() const { return 2 + mModel.effects.negativeSlowdownPercent / 100; }

    void produce() override {
        waitUntil(0);
        for (mFrame = 0; mFrame < mModel.work.size(); ++mFrame) {
            FrameRoad road;
            partOf(road.parts, Part::kHeld) = mReturnedNs - mQueuedNs;
            waitToBegin(road);
            workOn(road);
            queueAt(now(), [this] {
                mQueuedNs = now();
                mQueue.queue();
            });
            mReturnedNs = now();
            mRoads.push_back(road);
        }
        mQueue.close();
    }

    // Until the game would begin the frame and has a buffer for it.
    void waitToBegin(FrameRoad& road) {
        const bool isFirst = mFrame == 0;
        const int64_t ready = isFirst ? mModel.firstQueuedNs - mModel.work.front().workNs
                                      : readyAfter(mReturnedNs);
        const int64_t unheld = isFirst ? ready : readyAfter(mQueuedNs);
        waitUntil(std::max(ready, mReturnedNs));
        if (mModel.make.kind == Make::Kind::kStages && !isFirst) finishFirstStage();
        mReadyNs = now();
        partOf(road.parts, mModel.make.waitsFor()) += mReadyNs - mReturnedNs;
        const int64_t freeNs = mQueue.waitForFreeBuffer() - kOriginNs;
        if (now() > mReadyNs) sim::sleepFor(mModel.make.freeDelayNs);
        partOf(road.parts, Part::kBuffer) += now() - mReadyNs;
        road.heldBackNs = std::max<int64_t>(0, now() - std::max(unheld, std::min(freeNs, now())));
        mFirstStageFromNs = mReadyNs;
        // When the first frame of a capture began is not known; the next vsync counts from its end.
        if (isFirst && mModel.make.kind == Make::Kind::kVsync) mReadyNs = mModel.firstQueuedNs;
    }

    int64_t readyAfter(int64_t returnedNs) const {
        return readyNs(mModel.make, mBeats, mModel.work[mFrame], returnedNs, mReadyNs);
    }

    // The other thread has worked on this frame since it handed over the one before.
    void finishFirstStage() {
        const int64_t beganNs = mFirstStageFromNs + kOriginNs;
        const int64_t workNs = mModel.work[mFrame].firstStageNs;
        const int64_t sinceNs = sim::now();
        if (mModel.effects.any()) {
            workUntil(mClocks.doneAt(beganNs) + workNs * Clocks::kNormalSpeed);
        } else {
            sim::sleepUntil(beganNs + workNs);
        }
        if (sim::now() > sinceNs) sim::sleepFor(mModel.make.wakeDelayNs);
    }

    // Hints change how long it takes, and each of its parts alike.
    void workOn(FrameRoad& road) {
        const int64_t beginNs = now();
        const FrameWork& frame = mModel.work[mFrame];
        work(frame.workNs);
        const int64_t tookNs = now() - beginNs;
        int64_t left = tookNs;
        for (size_t i = 0; i < kParts; ++i) {
            const double share = static_cast<double>(frame.parts[i]) /
                                 static_cast<double>(std::max<int64_t>(frame.workNs, 1));
            const auto part =
                    std::min(left, static_cast<int64_t>(share * static_cast<double>(tookNs) + 0.5));
            road.parts[i] += part;
            left -= part;
        }
        partOf(road.parts, Part::kRunning) += left;
    }

    void work(int64_t workNs) {
        if (!mModel.effects.any()) return sim::sleepFor(workNs);
        workUntil(mClocks.doneAt(sim::now()) + workNs * Clocks::kNormalSpeed);
    }

    // A hint may change the speed at any time, so never sleep past the earliest possible end.
    void workUntil(int64_t target) {
        constexpr int64_t kShortestSleepNs = 1'000;
        for (;;) {
            const int64_t left = target - mClocks.doneAt(sim::now());
            if (left <= 0) return;
            sim::sleepFor(std::max(left / mClocks.fastest(), kShortestSleepNs));
        }
    }

    void compose() override {
        for (size_t i = 0;; ++i) {
            const int64_t delayNs =
                    i < mModel.latchDelaysNs.size() ? mModel.latchDelaysNs[i] : mModel.latchDelayNs;
            if (delayNs == kNoLatch) continue;
            const int64_t timeNs = mBeats.timeNs(i) + delayNs;
            tellRates(timeNs);
            waitUntil(timeNs);
            if (mQueue.isDrained()) return;
            if (const std::optional<int> pending = mQueue.latch()) consumeAt(timeNs, *pending);
        }
    }

    void beat() override {
        for (size_t i = 0;; ++i) {
            waitUntil(mBeats.timeNs(i));
            if (mQueue.isDrained()) return;
            vsyncAt(mBeats.timeNs(i));
        }
    }

    const ModelOptions& mModel;
    const Beats mBeats;
    BufferQueue mQueue;
    Clocks mClocks;
    // The producer's alone.
    size_t mFrame = 0;
    int64_t mQueuedNs = 0;    // the frame before
    int64_t mReturnedNs = 0;  // its queue call
    int64_t mReadyNs = 0;     // it could begin, but for a buffer
    int64_t mFirstStageFromNs = 0;
    std::vector<FrameRoad> mRoads;
};

}  // namespace

std::unique_ptr<Playback> makeModelledPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs,
                                               const PlayOptions& options) {
    return std::make_unique<ModelledPlayback>(layer, vsyncs, options);
}

}  // namespace replay
