// A closed loop: a game that starts a frame when its queue call has returned and a buffer is free,
// and a compositor that latches one buffer a vsync. The rules are in docs/model.md.

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <numeric>

#include "replay/play/Playback.h"

namespace replay {

namespace {

// Every frame can be held for about two periods and wait as long for its buffer.
constexpr int64_t kPeriodsPerFrame = 6;

// The layer's buffers: queued ones, the one on the screen, and the one that is worked on.
class BufferQueue {
  public:
    explicit BufferQueue(int buffers) : mBuffers(buffers) {}

    void waitForFreeBuffer() {
        std::unique_lock<std::mutex> lock(mLock);
        mFreed.wait(lock, [this] { return mPending + mShown < mBuffers; });
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
        --mPending;
        mShown = 1;
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
    int mPending = 0;
    int mShown = 0;
    bool mClosed = false;
};

class ModelledPlayback : public Playback {
  public:
    ModelledPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs, const PlayOptions& options)
          : Playback(layer, vsyncs, options),
            mModel(*options.model),
            mQueue(mModel.buffers),
            mClocks(mModel.effects) {}

    size_t eventCount() const override {
        return static_cast<size_t>(lengthNs() / std::max<int64_t>(mVsyncs.periodNs, 1)) * 3;
    }

    int64_t lengthNs() const override {
        const int64_t workNs =
                std::accumulate(mModel.workNs.begin(), mModel.workNs.end(), int64_t{0});
        const auto frames = static_cast<int64_t>(mModel.workNs.size());
        return workNs * slowestShare() + frames * kPeriodsPerFrame * mVsyncs.longestPeriodNs();
    }

    void onSeen(const device::Event& event) override {
        if (mModel.effects.any()) mClocks.onCall(event);
    }

  private:
    // How many times longer work can take, rounded up: no hint is stronger than its 16 bits say,
    // but those beyond 100 % are no strengths.
    int64_t slowestShare() const { return 2 + mModel.effects.negativeSlowdownPercent / 100; }

    void produce() override {
        waitUntil(0);
        for (const int64_t workNs : mModel.workNs) {
            mQueue.waitForFreeBuffer();
            work(workNs);
            queueAt(now(), [this] { mQueue.queue(); });
        }
        mQueue.close();
    }

    void work(int64_t workNs) {
        if (!mModel.effects.any()) return sim::sleepFor(workNs);
        // A hint may change the speed at any time, so never sleep past the earliest possible end.
        constexpr int64_t kShortestSleepNs = 1'000;
        const int64_t target = mClocks.doneAt(sim::now()) + workNs * Clocks::kNormalSpeed;
        for (;;) {
            const int64_t left = target - mClocks.doneAt(sim::now());
            if (left <= 0) return;
            sim::sleepFor(std::max(left / mClocks.fastest(), kShortestSleepNs));
        }
    }

    void compose() override {
        for (size_t i = 0;; ++i) {
            const int64_t timeNs = vsyncTimeNs(i) + mModel.latchDelayNs;
            tellRates(timeNs);
            waitUntil(timeNs);
            if (mQueue.isDrained()) return;
            if (const std::optional<int> pending = mQueue.latch()) consumeAt(timeNs, *pending);
        }
    }

    void beat() override {
        for (size_t i = 0;; ++i) {
            waitUntil(vsyncTimeNs(i));
            if (mQueue.isDrained()) return;
            vsyncAt(vsyncTimeNs(i));
        }
    }

    // The display goes on when the capture is over.
    int64_t vsyncTimeNs(size_t index) const {
        const std::vector<int64_t>& times = mVsyncs.timesNs;
        if (index < times.size()) return times[index];
        const int64_t last = times.empty() ? 0 : times.back();
        const size_t known = times.empty() ? 0 : times.size() - 1;
        return last + static_cast<int64_t>(index - known) * mVsyncs.periodAt(last);
    }

    const ModelOptions mModel;
    BufferQueue mQueue;
    Clocks mClocks;
};

}  // namespace

std::unique_ptr<Playback> makeModelledPlayback(const LayerEvents& layer, const VsyncTrack& vsyncs,
                                               const PlayOptions& options) {
    return std::make_unique<ModelledPlayback>(layer, vsyncs, options);
}

}  // namespace replay
