#include "tests/replay/GeneratedGame.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <utility>

namespace {

constexpr int64_t kUs = 1'000;
constexpr int64_t kMs = 1'000'000;
constexpr int64_t kStartNs = 100'000 * kMs;
constexpr char kLayer[] = "SurfaceView - com.example.game/com.example.game.Main#0";
constexpr int kAwakeVsyncs = 6;
constexpr int64_t kOtherFromNs = 2'000 * kMs;
constexpr int64_t kOtherToNs = 4'000 * kMs;
constexpr int64_t kLateNs = 2 * kMs;

class Noise {
  public:
    explicit Noise(unsigned seed) : mState(seed * 2654435761u + 99991u) { next(); }
    uint64_t next() {
        mState = mState * 6364136223846793005u + 1442695040888963407u;
        return mState >> 33;
    }
    // Evenly, both included.
    int64_t between(int64_t least, int64_t most) {
        return least + static_cast<int64_t>(next() % static_cast<uint64_t>(most - least + 1));
    }
    bool oneIn(int64_t count) { return between(1, count) == 1; }

  private:
    uint64_t mState;
};

struct Thread {
    const char* name;
    int id;
    int cpu;
};
constexpr Thread kIdle{"<idle>", 0, 0};
constexpr Thread kGame{"game.render", 2001, 4};
constexpr Thread kFirst{"game.logic", 2002, 5};
constexpr Thread kBinder{"Binder:612_4", 1893, 2};
constexpr Thread kCompositor{"surfaceflinger", 612, 1};
constexpr Thread kVsyncs{"TimerDispatch", 700, 0};
constexpr Thread kAppVsyncs{"appEventThread", 650, 0};

class Simulation {
  public:
    explicit Simulation(const GeneratedGame& game)
          : mGame(game),
            mNoise(game.seed),
            mWorkNoise(game.seed + 1'000'000),
            mPeriodNs(std::llround(1e9 / game.hz) + mNoise.between(-9, 9) * kUs),
            mOtherPeriodNs(game.otherHz == 0 ? mPeriodNs : std::llround(1e9 / game.otherHz)),
            mLatchNs(mNoise.between(700, 1'500) * kUs),
            mAppPhaseNs(mNoise.between(0, mPeriodNs / kUs - 1) * kUs),
            mTimerNs(2 * mPeriodNs + mNoise.between(-30, 60) * kUs),
            mJitterPercent(mNoise.between(2, 12)) {}

    GeneratedTruth run() {
        for (int i = 0; i < mGame.chance; ++i) mNoise.next();
        counter(kStartNs, kBinder, kLayer, 0);
        int64_t readyNs = kStartNs + mNoise.between(0, mPeriodNs);
        int64_t returnedNs = readyNs;
        int64_t handedNs = readyNs;
        for (int i = 0; i < mGame.frames; ++i) {
            const int64_t first = mGame.make == GeneratedGame::Make::kStages ? workNs(70) : 0;
            readyNs = begin(i, returnedNs, readyNs, handedNs + first);
            if (mGame.make == GeneratedGame::Make::kStages) firstStage(handedNs, first, readyNs);
            handedNs = readyNs;
            const int64_t beginNs = dequeue(readyNs);
            const int64_t work = workNs(100);
            preempt(beginNs, work);
            const int64_t queuedNs = beginNs + work;
            mWork.push_back(work + first);
            returnedNs = queue(queuedNs);
        }
        advanceTo(returnedNs + 4 * mPeriodNs);
        return truth();
    }

  private:
    // Whole microseconds, as ftrace has no more.
    int64_t workNs(int sharePercent) {
        int64_t work = mPeriodNs * mGame.loadPercent / 100;
        work += work * mWorkNoise.between(-mJitterPercent, mJitterPercent) / 100;
        if (mWorkNoise.oneIn(80)) work += mPeriodNs * mWorkNoise.between(5, 30) / 10;  // a hitch
        return work * sharePercent / 100 / kUs * kUs;
    }

    int64_t begin(int frame, int64_t returnedNs, int64_t lastNs, int64_t handedNs) {
        int64_t readyNs = returnedNs;
        const Thread* waker = &kIdle;
        if (mGame.make == GeneratedGame::Make::kVsyncs) {
            int64_t since = mGame.takesMissed ? lastNs + 200 * kUs : returnedNs;
            if (mGame.everyVsyncs > 1)
                since = std::max(since, lastNs + (mGame.everyVsyncs - 1) * mPeriodNs + 200 * kUs);
            int64_t beat = 0;
            while (beatNs(beat) < since) ++beat;
            readyNs = std::max(returnedNs, beatNs(beat));
            waker = &kAppVsyncs;
        } else if (mGame.make == GeneratedGame::Make::kTimer) {
            readyNs = frame == 0 ? returnedNs : std::max(returnedNs, lastNs + mTimerNs);
        } else if (mGame.make == GeneratedGame::Make::kStages) {
            readyNs = std::max(returnedNs, handedNs);
            waker = &kFirst;
        }
        if (readyNs <= returnedNs + 60 * kUs) return std::max(readyNs, returnedNs);
        const int64_t wokenNs = readyNs;
        readyNs += mNoise.between(5, 60) * kUs;
        sleep(kGame, returnedNs + 20 * kUs, wokenNs, readyNs, *waker);
        return readyNs;
    }

    // The other thread worked until then, and was taken over from at `takenNs`.
    void firstStage(int64_t fromNs, int64_t work, int64_t takenNs) {
        const int64_t doneNs = fromNs + work;
        if (takenNs > doneNs + 30 * kUs)
            sleep(kFirst, doneNs + 10 * kUs, takenNs + 5 * kUs, takenNs + 10 * kUs, kGame);
    }

    // When there is a buffer.
    int64_t dequeue(int64_t readyNs) {
        marker(readyNs, kGame, "B|2000|dequeueBuffer");
        advanceTo(readyNs);
        int64_t beginNs = readyNs;
        while (static_cast<int>(mPending.size()) + (mShown ? 1 : 0) >= mGame.buffers) {
            beginNs = latchTimeNs(mVsync);
            latch();
        }
        if (beginNs > readyNs) {
            const int64_t freedNs = beginNs + 5 * kUs;
            beginNs += mNoise.between(10, 60) * kUs;
            sleep(kGame, readyNs + 5 * kUs, freedNs, beginNs, kCompositor);
        }
        marker(beginNs, kGame, "E|2000");
        return beginNs;
    }

    // Now and then another thread is on the processor; that is part of the work.
    void preempt(int64_t beginNs, int64_t work) {
        if (!mNoise.oneIn(4)) return;
        const int64_t atNs = beginNs + work / 3;
        const int64_t backNs = atNs + std::min(work / 4, mNoise.between(50, 900) * kUs) / kUs * kUs;
        change(atNs, kGame, "R+", kIdle);
        change(backNs, kIdle, "R", kGame);
    }

    // The counter rises in the compositor's thread that takes the call. Returns when it is over.
    int64_t queue(int64_t timeNs) {
        advanceTo(timeNs);
        ++mTransaction;
        marker(timeNs - 80 * kUs, kGame, "B|2000|queueBuffer");
        event(timeNs - 70 * kUs, kGame, false,
              "binder_transaction: transaction=%d dest_node=1 "
              "dest_proc=612 dest_thread=0 reply=0 flags=0x10 code=0x7",
              mTransaction);
        event(timeNs - 60 * kUs, kGame, false,
              "sched_wakeup: comm=%s pid=%d prio=120 target_cpu=002", kBinder.name, kBinder.id);
        change(timeNs - 55 * kUs, kGame, "S", kIdle);
        change(timeNs - 50 * kUs, kIdle, "R", kBinder);
        event(timeNs - 45 * kUs, kBinder, false, "binder_transaction_received: transaction=%d",
              mTransaction);
        mPending.push_back(timeNs);
        mQueued.push_back(timeNs);
        counter(timeNs, kBinder, kLayer, static_cast<int>(mPending.size()));
        if (mGame.slots) {
            char name[160];
            std::snprintf(name, sizeof(name), "B|612|%s: %d", kLayer,
                          static_cast<int>(mQueued.size()) % mGame.buffers);
            mark(timeNs, kBinder, name);
            mark(timeNs, kBinder, "E|612");
        }
        const int64_t overNs = timeNs + mGame.holdNs;
        event(overNs, kBinder, false, "sched_wakeup: comm=%s pid=%d prio=110 target_cpu=004",
              kGame.name, kGame.id);
        change(overNs + 2 * kUs, kIdle, "R", kGame);
        change(overNs + 3 * kUs, kBinder, "S", kIdle);
        marker(overNs + 6 * kUs, kGame, "E|2000");
        return overNs + 8 * kUs;
    }

    int64_t periodNs(int64_t timeNs) const {
        const bool isOther = timeNs >= kStartNs + kOtherFromNs && timeNs < kStartNs + kOtherToNs;
        return isOther ? mOtherPeriodNs : mPeriodNs;
    }

    // A frame that the display's change met is not to blame for it.
    int64_t periodNs(int64_t fromNs, int64_t toNs) const {
        return std::max(periodNs(fromNs), periodNs(toNs));
    }

    int64_t vsyncNs(int64_t vsync) {
        while (static_cast<int64_t>(mVsyncTimes.size()) <= vsync)
            mVsyncTimes.push_back(mVsyncTimes.back() + periodNs(mVsyncTimes.back()));
        return mVsyncTimes[static_cast<size_t>(vsync)];
    }

    // When applications are told of it. Each rate has a delay of its own.
    int64_t beatNs(int64_t vsync) {
        const int64_t at = vsyncNs(vsync);
        return at + mAppPhaseNs % periodNs(at);
    }

    int64_t latchTimeNs(int64_t vsync) {
        while (static_cast<int64_t>(mLatchTimes.size()) <= vsync) {
            const int64_t at = vsyncNs(static_cast<int64_t>(mLatchTimes.size()));
            mLatchTimes.push_back(at + mLatchNs + mNoise.between(0, 200) * kUs);
        }
        return mLatchTimes[static_cast<size_t>(vsync)];
    }

    void advanceTo(int64_t timeNs) {
        while (latchTimeNs(mVsync) <= timeNs) latch();
    }

    // The compositor at its next vsync.
    void latch() {
        const int64_t atNs = vsyncNs(mVsync);
        const int64_t timeNs = latchTimeNs(mVsync++);
        mIdle = mPending.empty() ? mIdle + 1 : 0;
        if (mIdle <= kAwakeVsyncs) {
            mLevel = 1 - mLevel;
            counter(atNs + mNoise.between(0, 20) * kUs, kVsyncs, "VSYNC-sf", mLevel);
        }
        if (mPending.empty()) return;
        mLatencies.push_back(timeNs - mPending.front());
        mPending.pop_front();
        mShown = true;
        if (mLatchedNs > 0 && 2 * (timeNs - mLatchedNs) >= 3 * periodNs(mLatchedNs, timeNs))
            ++mStutters;
        mLatchedNs = timeNs;
        counter(timeNs, kCompositor, kLayer, static_cast<int>(mPending.size()));
    }

    void sleep(const Thread& thread, int64_t fromNs, int64_t wokenNs, int64_t untilNs,
               const Thread& waker) {
        if (fromNs >= wokenNs) return;
        change(fromNs, thread, "S", kIdle);
        const bool servesOthers = waker.id != 0 && waker.cpu < kGame.cpu;
        if (servesOthers) change(wokenNs - 3 * kUs, kIdle, "R", waker);
        const Thread on{waker.name, waker.id, waker.id == 0 ? thread.cpu : waker.cpu};
        event(wokenNs, on, waker.id == 0, "sched_wakeup: comm=%s pid=%d prio=110 target_cpu=%03d",
              thread.name, thread.id, thread.cpu);
        if (servesOthers) change(wokenNs + 3 * kUs, waker, "S", kIdle);
        change(untilNs, kIdle, "R", thread);
    }

    void change(int64_t timeNs, const Thread& from, const char* state, const Thread& to) {
        const int cpu = from.id == 0 ? to.cpu : from.cpu;
        event(timeNs, {from.name, from.id, cpu}, false,
              "sched_switch: prev_comm=%s prev_pid=%d prev_prio=110 prev_state=%s ==> "
              "next_comm=%s next_pid=%d next_prio=110",
              from.name, from.id, state, to.name, to.id);
    }

    void counter(int64_t timeNs, const Thread& thread, const char* name, int value) {
        char text[160];
        std::snprintf(text, sizeof(text), "C|612|%s|%d", name, value);
        mark(timeNs, thread, text);
    }
    // Of the game's own slices: they come with the scheduling here.
    void marker(int64_t timeNs, const Thread& thread, const char* text) {
        if (mGame.scheduled) mark(timeNs, thread, text);
    }
    void mark(int64_t timeNs, const Thread& thread, const char* text) {
        line(timeNs, thread, false, std::string("tracing_mark_write: ") + text);
    }
    __attribute__((format(printf, 5, 6))) void event(int64_t timeNs, const Thread& thread,
                                                     bool interrupt, const char* format, ...) {
        if (!mGame.scheduled) return;
        char text[256];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        line(timeNs, thread, interrupt, text);
    }
    void line(int64_t timeNs, const Thread& thread, bool interrupt, const std::string& text) {
        char head[96];
        std::snprintf(head, sizeof(head), "%16s-%-5d [%03d] d.%c. %lld.%06lld: ", thread.name,
                      thread.id, thread.cpu, interrupt ? 'h' : '.',
                      static_cast<long long>(timeNs / (1000 * kMs)),
                      static_cast<long long>(timeNs % (1000 * kMs) / kUs));
        mLines.emplace_back(timeNs / kUs, head + text);
    }

    static int64_t median(std::vector<int64_t> values) {
        std::sort(values.begin(), values.end());
        return values[(values.size() - 1) / 2];
    }

    GeneratedTruth truth() {
        GeneratedTruth truth;
        truth.figures.framesPerSecond = static_cast<double>(mQueued.size() - 1) * 1e9 /
                                        static_cast<double>(mQueued.back() - mQueued.front());
        for (size_t i = 1; i < mQueued.size(); ++i)
            truth.figures.lateFrames +=
                    mQueued[i] - mQueued[i - 1] > periodNs(mQueued[i - 1], mQueued[i]) + kLateNs
                            ? 1
                            : 0;
        truth.figures.stutters = mStutters;
        truth.figures.latencyP50Ns = median(mLatencies);
        truth.workP50Ns = median(mWork);
        std::stable_sort(mLines.begin(), mLines.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        truth.ftrace = "# tracer: nop\n";
        for (const auto& [time, text] : mLines) truth.ftrace += text + '\n';
        return truth;
    }

    const GeneratedGame mGame;
    Noise mNoise;
    Noise mWorkNoise;  // so that a game works the same however it is held
    const int64_t mPeriodNs;
    const int64_t mOtherPeriodNs;
    const int64_t mLatchNs;
    const int64_t mAppPhaseNs;
    const int64_t mTimerNs;
    const int64_t mJitterPercent;
    std::vector<std::pair<int64_t, std::string>> mLines;
    std::vector<int64_t> mVsyncTimes = {kStartNs};
    std::vector<int64_t> mLatchTimes, mQueued, mWork, mLatencies;
    std::deque<int64_t> mPending;
    int64_t mVsync = 0;
    int64_t mLatchedNs = 0;
    int64_t mStutters = 0;
    int mIdle = 0;
    int mLevel = 0;
    int mTransaction = 0;
    bool mShown = true;  // it has been running for a while
};

}  // namespace

std::string GeneratedGame::name() const {
    static constexpr const char* kNames[kMakes] = {"buffers", "vsyncs", "timer", "stages"};
    return std::string(kNames[static_cast<int>(make)]) + " " + std::to_string(hz) + " Hz, " +
           (otherHz == 0 ? "" : std::to_string(otherHz) + " Hz between, ") +
           std::to_string(buffers) + " buffers, " + std::to_string(loadPercent) + " %, seed " +
           std::to_string(seed) + (scheduled ? ", scheduled" : "") + (slots ? ", slots" : "") +
           (takesMissed ? ", takes missed" : "");
}

GeneratedGame generatedGame(GeneratedGame::Make make, bool scheduled, unsigned seed) {
    static constexpr int kRates[] = {60, 90, 120, 144};
    Noise noise(seed * 31 + 7);
    GeneratedGame game;
    game.make = make;
    game.scheduled = scheduled;
    game.seed = seed;
    game.hz = kRates[noise.between(0, 3)];
    game.buffers = static_cast<int>(noise.between(2, 4));
    game.loadPercent = static_cast<int>(noise.between(30, 130));
    game.slots = noise.oneIn(2);
    game.takesMissed = noise.oneIn(2);
    const int otherHz = kRates[noise.between(0, 3)];
    if (otherHz == game.hz || !noise.oneIn(2)) return game;
    game.otherHz = otherHz;
    game.frames = 4 * game.hz + 2 * otherHz;
    return game;
}

GeneratedTruth generate(const GeneratedGame& game) {
    return Simulation(game).run();
}
