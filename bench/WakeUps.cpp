// How late the library's wake-ups are in real time, beside bare waits of the same length at the same
// places of a frame in the same run, and how many there are in a frame.
//
// wake_ups SECONDS normal|realtime: plays two 60 Hz games at once, one with both regulators of the
// library, the other with the bare waits. One frame in five comes late, by a random time, so that the
// games drift past each other and what one does to the other meets both alike. Writes the times as JSON.

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>

#include "bench/BareGame.h"
#include "bench/Clock.h"
#include "bench/LibraryThreads.h"
#include "bench/Scene.h"
#include "bench/Statistics.h"
#include "platform/Thread.h"

namespace {

using bench::kPeriodNs;
using bench::nowNs;
using bench::Scene;

// In the order in which the library starts them, and the bare game after it.
enum WatchedThread { kMonitor, kBoost, kHeadroom, kWatchedThreads };

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kTimerNs = kPeriodNs - kPeriodNs / 2;  // to the release, with the least headroom

// What is measured of one of the two games.
struct Lateness {
    std::array<std::atomic<int>, kWatchedThreads> wakeUps{};
    std::array<double, kWatchedThreads> wakeUpsPerFrame{};
    std::atomic<int64_t> releaseDeadline{0};
    std::atomic<int64_t> checkpointDeadline{0};
    std::mutex lock;
    std::vector<double> releases;     // guarded by lock, ns late: the held call is back
    std::vector<double> checkpoints;  // the monitor is awake
    std::vector<double> boosts;       // the service is called

    void add(std::vector<double>& times, int64_t deadline, int64_t now) {
        const std::lock_guard<std::mutex> guard(lock);
        times.push_back(static_cast<double>(now - deadline));
    }
};

enum Side { kLibrary, kBare, kSides };
std::array<Lateness, kSides> gLateness;

void onWait(const bench::threads::Wait& wait) {
    if (wait.thread >= kSides * kWatchedThreads) return;
    Lateness& lateness = gLateness.at(static_cast<size_t>(wait.thread / kWatchedThreads));
    const int thread = wait.thread % kWatchedThreads;
    ++lateness.wakeUps.at(static_cast<size_t>(thread));
    if (!wait.timedOut) return;
    if (thread == kHeadroom) lateness.releaseDeadline = wait.deadline;
    if (thread != kMonitor) return;
    lateness.checkpointDeadline = wait.deadline;
    lateness.add(lateness.checkpoints, wait.deadline, wait.returned);
}

void onEvent(const device::Event& event) {
    if (event.entryPoint != device::EntryPoint::kPerfHint) return;
    const bool release = event.arguments.at(1) == 0;
    const int thread = bench::threads::current();
    if (release || thread < 0 || thread >= kSides * kWatchedThreads) return;
    Lateness& lateness = gLateness.at(static_cast<size_t>(thread / kWatchedThreads));
    lateness.add(lateness.boosts, lateness.checkpointDeadline, event.timeNs);
}

void sleepUntil(int64_t time) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const timespec until{time / kNsPerSecond, time % kNsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
    }
}

// The library, called as the bare game is.
class LibraryGame {
  public:
    explicit LibraryGame(Scene& scene) : mLibrary(scene.library()) {}
    void vsync() { mLibrary.trackVsyncSignal(); }
    void queue() { mLibrary.trackBufferIncrement(Scene::layer(0)); }
    void consume() { mLibrary.trackBufferDecrement(Scene::layer(0), 0); }

  private:
    device::CindralLibrary& mLibrary;
};

template <typename Game>
class Player {
  public:
    Player(Game& game, Lateness& lateness, unsigned seed)
          : mGame(game), mLateness(lateness), mRandom(seed) {}

    // On a thread of its own.
    void play(int64_t end) {
        android::cindral::enterRealtimeScheduling();
        countWakeUps();
        constexpr int kInTime = 4;
        while (mNext < end) {
            for (int i = 0; i < kInTime; ++i) frame();
            beLate();
        }
    }

  private:
    // In frames that all come in time.
    void countWakeUps() {
        constexpr int kFrames = 120;
        for (auto& count : mLateness.wakeUps) count = 0;
        for (int i = 0; i < kFrames; ++i) frame();
        for (size_t i = 0; i < kWatchedThreads; ++i)
            mLateness.wakeUpsPerFrame.at(i) =
                    static_cast<double>(mLateness.wakeUps.at(i)) / kFrames;
    }

    // A frame of one period: a vsync, and a buffer that is held until the release.
    void frame() {
        sleepUntil(mNext);
        mGame.vsync();
        sleepUntil(mNext + kMs);
        mLateness.releaseDeadline = 0;
        mGame.queue();
        const int64_t now = nowNs();
        const int64_t deadline = mLateness.releaseDeadline;
        if (deadline != 0) mLateness.add(mLateness.releases, deadline, now);
        mGame.consume();
        mNext += kPeriodNs;
    }

    // The next buffer comes 2 to 5 ms after the first checkpoint. Consumption goes on, as a stutter
    // would count against the headroom regulator.
    void beLate() {
        sleepUntil(mNext + kTimerNs / 2);
        mGame.consume();
        mNext += kTimerNs + std::uniform_int_distribution<int64_t>(kMs, 4 * kMs)(mRandom);
    }

    Game& mGame;
    Lateness& mLateness;
    std::mt19937 mRandom;
    int64_t mNext = nowNs() + kMs;
};

void printTimes(const char* name, const std::vector<double>& times) {
    printf("  \"%s\": {\"p50_us\": %.3f, \"p99_us\": %.3f, \"max_us\": %.3f, \"us\": [", name,
           bench::quantile(times, 0.5) / 1e3, bench::quantile(times, 0.99) / 1e3,
           bench::quantile(times, 1) / 1e3);
    for (size_t i = 0; i < times.size(); ++i) printf("%s%.2f", i == 0 ? "" : ",", times[i] / 1e3);
    printf("]},\n");
}

void printLateness(const std::string& prefix, const Lateness& lateness) {
    printTimes((prefix + "release").c_str(), lateness.releases);
    printTimes((prefix + "checkpoint_1").c_str(), lateness.checkpoints);
    printTimes((prefix + "boost").c_str(), lateness.boosts);
    printf("  \"%swake_ups_per_frame\": {\"monitor\": %.3f, \"boost\": %.3f, \"headroom\": %.3f}",
           prefix.c_str(), lateness.wakeUpsPerFrame[kMonitor], lateness.wakeUpsPerFrame[kBoost],
           lateness.wakeUpsPerFrame[kHeadroom]);
}

bool measuredAll(const Lateness& lateness) {
    return !lateness.releases.empty() && !lateness.checkpoints.empty() && !lateness.boosts.empty();
}

bench::SceneOptions gameOptions() {
    bench::SceneOptions options;
    options.headroom = options.environment = true;
    options.trackers = 1;
    options.threads = bench::LibraryThreads::kAll;
    options.floorThread = false;
    return options;
}

int measure(int64_t seconds, bool realtime) {
    bench::threads::denyRealtime(!realtime);
    Scene scene(gameOptions());
    LibraryGame library(scene);
    bench::BareGame bare(kTimerNs, kPeriodNs);
    device::StandInDevice::instance().setEventSink(onEvent);
    bench::threads::observeWaits(onWait);
    const int64_t end = nowNs() + seconds * 1'000 * kMs;
    std::thread bareProducer([&] { Player(bare, gLateness[kBare], 1).play(end); });
    std::thread producer([&] { Player(library, gLateness[kLibrary], 2).play(end); });
    bareProducer.join();
    producer.join();
    bench::threads::observeWaits(nullptr);
    device::StandInDevice::instance().setEventSink({});

    printf("{\n");
    printLateness("bare_", gLateness[kBare]);
    printf(",\n");
    printLateness("", gLateness[kLibrary]);
    printf("\n}\n");
    return measuredAll(gLateness[kBare]) && measuredAll(gLateness[kLibrary]) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const int64_t seconds = argc == 3 ? atoll(argv[1]) : 0;
    const std::string scheduling = argc == 3 ? argv[2] : "";
    if (seconds < 1 || (scheduling != "normal" && scheduling != "realtime")) {
        fprintf(stderr, "usage: wake_ups SECONDS normal|realtime\n");
        return 2;
    }
    try {
        return measure(seconds, scheduling == "realtime");
    } catch (const std::exception& error) {
        fprintf(stderr, "wake_ups: %s\n", error.what());
        return 1;
    }
}
