#include "replay/capture/ModelledSession.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace replay {

const char kModelledSessionName[] = "modelled session";

namespace {

constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kUsPerSecond = 1'000'000;
constexpr int64_t kSessionStartUs = 100 * kUsPerSecond;
constexpr int64_t kRefreshRate = 60;
constexpr int64_t kVsyncCount = 30 * kRefreshRate;
// The compositor takes a buffer this long after the vsync.
constexpr int64_t kConsumeDelayUs = 700;
// A producer that runs ahead waits for a free buffer once this many are queued.
constexpr int kMaxQueued = 2;
// Without anything to show for this many vsyncs the compositor lets the vsyncs pause.
constexpr int kVsyncsUntilIdle = 6;

constexpr char kLayerCounter[] =
        "BufferTX - SurfaceView[com.example.game/com.example.game.MainActivity](BLAST)#7";
constexpr char kVsyncCounter[] = "VSYNC-sf";

// A stretch of the session with one way of rendering.
struct Phase {
    int64_t vsyncs;        // its length
    int64_t renderUs;      // how long a frame takes to render
    int64_t jitterUs;      // by how much that varies, up or down
    int64_t lateEvery;     // every nth frame is late; 0: none is
    int64_t lateRenderUs;  // how long a late one takes
    bool runsAhead;        // renders the next frame at once instead of waiting for the vsync
};

constexpr std::array kPhases = {
        Phase{4 * kRefreshRate, 9'000, 900, 0, 0, false},             // loading screen done, steady
        Phase{4 * kRefreshRate, 9'500, 1'200, 47, 27'000, false},     // single late frames
        Phase{8 * kRefreshRate, 12'000, 2'000, 97, 46'000, true},     // buffers accumulate
        Phase{30, 25'000, 3'000, 0, 0, false},                        // a burst of slow frames
        Phase{5 * kRefreshRate + 30, 11'000, 1'500, 0, 0, true},      // accumulating again
        Phase{1, 2 * kUsPerSecond, 0, 0, 0, false},                   // one frame takes two seconds
        Phase{6 * kRefreshRate - 1, 5'000, 600, 131, 21'000, false},  // a light scene, frames early
};

// A fixed sequence; the standard distributions differ between libraries.
class Noise {
  public:
    // Evenly from -range to range.
    int64_t next(int64_t range) {
        mState = mState * 6364136223846793005u + 1442695040888963407u;
        return static_cast<int64_t>((mState >> 33) % static_cast<uint64_t>(2 * range + 1)) - range;
    }

  private:
    uint64_t mState = 42;
};

int64_t vsyncTimeUs(int64_t index) {
    return kSessionStartUs + index * kUsPerSecond / kRefreshRate;
}

const Phase& phaseAt(int64_t timeUs) {
    int64_t vsync = (timeUs - kSessionStartUs) * kRefreshRate / kUsPerSecond;
    for (const Phase& phase : kPhases) {
        if (vsync < phase.vsyncs) return phase;
        vsync -= phase.vsyncs;
    }
    return kPhases.back();
}

// The game and the compositor, stepped from vsync to vsync.
class Session {
  public:
    std::vector<CounterSample> run() {
        emit(kSessionStartUs, CounterSample::Origin::kProducer, kLayerCounter, 0);
        startFrame(kSessionStartUs);
        for (int64_t i = 1; i <= kVsyncCount; ++i) {
            queueUntil(vsyncTimeUs(i) + kConsumeDelayUs);
            vsync(vsyncTimeUs(i));
        }
        std::stable_sort(mSamples.begin(), mSamples.end(),
                         [](const auto& a, const auto& b) { return a.timeNs < b.timeNs; });
        return std::move(mSamples);
    }

  private:
    void startFrame(int64_t timeUs) {
        const Phase& phase = phaseAt(timeUs);
        const bool late = phase.lateEvery != 0 && ++mFrame % phase.lateEvery == 0;
        mReadyUs =
                timeUs + (late ? phase.lateRenderUs : phase.renderUs + mNoise.next(phase.jitterUs));
    }

    void queueUntil(int64_t timeUs) {
        while (mReadyUs < timeUs && mQueued < kMaxQueued) {
            ++mQueued;
            emit(mReadyUs, CounterSample::Origin::kProducer, kLayerCounter, mQueued);
            const int64_t doneUs = mReadyUs;
            if (mQueued == kMaxQueued) return;  // the next frame has to wait for a free buffer
            startFrame(phaseAt(doneUs).runsAhead ? doneUs : nextVsyncUs(doneUs));
        }
    }

    void vsync(int64_t timeUs) {
        mIdleVsyncs = mQueued > 0 ? 0 : mIdleVsyncs + 1;
        if (mIdleVsyncs > kVsyncsUntilIdle) return;
        mVsyncLevel = 1 - mVsyncLevel;
        emit(timeUs, CounterSample::Origin::kVsync, kVsyncCounter, mVsyncLevel);
        if (mQueued == 0) return;
        const bool producerWaited = mQueued == kMaxQueued;
        --mQueued;
        const int64_t consumedUs = timeUs + kConsumeDelayUs;
        emit(consumedUs, CounterSample::Origin::kCompositor, kLayerCounter, mQueued);
        if (producerWaited) startFrame(consumedUs);
    }

    static int64_t nextVsyncUs(int64_t timeUs) {
        int64_t index = (timeUs - kSessionStartUs) * kRefreshRate / kUsPerSecond;
        while (vsyncTimeUs(index) <= timeUs) ++index;
        return vsyncTimeUs(index);
    }

    void emit(int64_t timeUs, CounterSample::Origin origin, const char* name, int64_t value) {
        mSamples.push_back({timeUs * kNsPerUs, origin, name, value});
    }

    std::vector<CounterSample> mSamples;
    Noise mNoise;
    int64_t mReadyUs = 0;  // when the frame being rendered is done
    int64_t mFrame = 0;
    int mQueued = 0;
    int mIdleVsyncs = 0;
    int mVsyncLevel = 0;
};

const char* taskOf(CounterSample::Origin origin) {
    switch (origin) {
        case CounterSample::Origin::kProducer:
            return "   Binder:612_4-1893 ";
        case CounterSample::Origin::kCompositor:
            return " surfaceflinger-612  ";
        case CounterSample::Origin::kVsync:
            return "      TimerDispatch-700  ";
    }
    return "";
}

}  // namespace

std::vector<CounterSample> modelledSession() {
    return Session().run();
}

Capture modelledCapture() {
    CaptureBuilder builder;
    for (const CounterSample& sample : modelledSession()) {
        builder.addCounter(sample.timeNs, sample.name, sample.value);
    }
    return builder.build(kModelledSessionName);
}

void writeFtrace(std::ostream& out, const std::vector<CounterSample>& samples) {
    out << "# tracer: nop\n#\n# Modelled session of cindral-replay.\n#\n"
           "#           TASK-PID     TGID   CPU#  ||||   TIMESTAMP  FUNCTION\n";
    for (const CounterSample& sample : samples) {
        char head[128];
        const int64_t timeUs = sample.timeNs / kNsPerUs;
        std::snprintf(head, sizeof(head),
                      "%s (  612) [002] .... %6lld.%06lld: tracing_mark_write: C|612|",
                      taskOf(sample.origin), static_cast<long long>(timeUs / kUsPerSecond),
                      static_cast<long long>(timeUs % kUsPerSecond));
        out << head << sample.name << '|' << sample.value << '\n';
    }
}

}  // namespace replay
