// How late the library's wake-ups are in real time, beside bare waits of the same length in the same
// run, and how many there are in a frame.
//
// wake_ups SECONDS normal|realtime: plays a 60 Hz game with both regulators and the power controller
// on, one frame in five of which comes late, and writes the times as JSON.

#include <sys/resource.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>

#include "bench/BareWaits.h"
#include "bench/LibraryThreads.h"
#include "bench/Scene.h"
#include "bench/Statistics.h"
#include "platform/Thread.h"

namespace {

using bench::BareLateness;
using bench::kPeriodNs;
using bench::monotonicNow;
using bench::Scene;

// In the order in which the library starts them.
enum LibraryThread { kMonitor, kBoost, kHeadroom, kLibraryThreads };

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kTimerNs =
        8'333'334;  // the headroom timer: the period without the least headroom

std::array<std::atomic<int>, kLibraryThreads> gWakeUps{};
std::atomic<int64_t> gReleaseDeadline{0};
std::atomic<int64_t> gCheckpointDeadline{0};
std::mutex gLock;
std::vector<double> gReleases;     // guarded by gLock, ns late: the held call is back
std::vector<double> gCheckpoints;  // the monitor is awake
std::vector<double> gBoosts;       // the service is called

void onWait(const bench::threads::Wait& wait) {
    if (wait.thread >= kLibraryThreads) return;
    ++gWakeUps[static_cast<size_t>(wait.thread)];
    if (!wait.timedOut) return;
    if (wait.thread == kHeadroom) gReleaseDeadline = wait.deadline;
    if (wait.thread != kMonitor) return;
    gCheckpointDeadline = wait.deadline;
    const std::lock_guard<std::mutex> guard(gLock);
    gCheckpoints.push_back(static_cast<double>(wait.returned - wait.deadline));
}

void onEvent(const standin::Event& event) {
    constexpr int kPositiveBoostsBelow = 0x10000;
    if (event.entryPoint != standin::EntryPoint::kPerfHint) return;
    const bool release = event.arguments.at(1) == 0;
    if (release || event.arguments.at(2) >= kPositiveBoostsBelow) return;
    const std::lock_guard<std::mutex> guard(gLock);
    gBoosts.push_back(static_cast<double>(event.timeNs - gCheckpointDeadline));
}

void sleepUntil(int64_t time) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const timespec until{time / kNsPerSecond, time % kNsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
    }
}

class Game {
  public:
    explicit Game(Scene& scene) : mScene(scene) {}

    // A frame of one period: a vsync, and a buffer that is held until the release.
    void frame() {
        sleepUntil(mNext);
        mScene.library().trackVsyncSignal();
        sleepUntil(mNext + kMs);
        gReleaseDeadline = 0;
        mScene.library().trackBufferIncrement(Scene::layer(0));
        const int64_t now = monotonicNow();
        if (gReleaseDeadline != 0) {
            const std::lock_guard<std::mutex> guard(gLock);
            gReleases.push_back(static_cast<double>(now - gReleaseDeadline));
        }
        mScene.library().trackBufferDecrement(Scene::layer(0), 0);
        mNext += kPeriodNs;
    }

    // The next buffer comes 2 ms after the first checkpoint. Consumption goes on, as a stutter would
    // count against the headroom regulator.
    void beLate() {
        sleepUntil(mNext + kTimerNs / 2);
        mScene.library().trackBufferDecrement(Scene::layer(0), 0);
        mNext += kTimerNs + 2 * kMs;
    }

    int64_t next() const { return mNext; }

  private:
    Scene& mScene;
    int64_t mNext = monotonicNow() + kMs;
};

void printTimes(const char* name, const std::vector<double>& times, const char* end) {
    printf("  \"%s\": {\"p50_us\": %.3f, \"p99_us\": %.3f, \"max_us\": %.3f, \"us\": [", name,
           bench::quantile(times, 0.5) / 1e3, bench::quantile(times, 0.99) / 1e3,
           bench::quantile(times, 1) / 1e3);
    for (size_t i = 0; i < times.size(); ++i) printf("%s%.2f", i == 0 ? "" : ",", times[i] / 1e3);
    printf("]}%s\n", end);
}

// Wake-ups of each thread in frames that all come in time.
std::array<double, kLibraryThreads> countWakeUps(Game& game) {
    constexpr int kFrames = 120;
    for (auto& count : gWakeUps) count = 0;
    for (int i = 0; i < kFrames; ++i) game.frame();
    std::array<double, kLibraryThreads> perFrame{};
    for (size_t i = 0; i < perFrame.size(); ++i)
        perFrame.at(i) = static_cast<double>(gWakeUps.at(i)) / kFrames;
    return perFrame;
}

// The bare waits end apart from the library's in a frame: 3.7 ms after the vsync.
void play(Game& game, int64_t seconds, BareLateness& timer, BareLateness& period) {
    constexpr int64_t kBareBegin = 12 * kMs;
    bench::BareWaits bare;
    const int64_t end = monotonicNow() + seconds * 1'000 * kMs;
    for (int i = 0; monotonicNow() < end; ++i) {
        game.frame();
        if (i % 5 == 4) {
            game.beLate();
            continue;
        }
        sleepUntil(game.next() - kPeriodNs + kBareBegin);
        const bool shortOne = i % 5 < 2;
        if (shortOne) bare.wait(kTimerNs, timer);
        if (!shortOne && i % 5 == 2) bare.wait(kPeriodNs, period);
    }
    sleepUntil(monotonicNow() + 2 * kPeriodNs);
}

bench::SceneOptions gameOptions() {
    bench::SceneOptions options;
    options.headroom = options.power = options.environment = true;
    options.trackers = 1;
    options.threads = bench::LibraryThreads::kAll;
    return options;
}

int measure(int64_t seconds, bool realtime) {
    bench::threads::denyRealtime(!realtime);
    Scene scene(gameOptions());
    scene.stopFloor();
    android::cindral::enterRealtimeScheduling();
    standin::Device::instance().setEventSink(onEvent);
    bench::threads::observeWaits(onWait);
    Game game(scene);
    const auto wakeUps = countWakeUps(game);
    BareLateness timer, period;
    play(game, seconds, timer, period);
    bench::threads::observeWaits(nullptr);
    standin::Device::instance().setEventSink({});

    const std::lock_guard<std::mutex> guard(gLock);
    printf("{\n");
    printTimes("bare_timer", timer.wait, ",");
    printTimes("bare_timer_hand_over", timer.handOver, ",");
    printTimes("bare_period", period.wait, ",");
    printTimes("bare_period_hand_over", period.handOver, ",");
    printTimes("release", gReleases, ",");
    printTimes("checkpoint_1", gCheckpoints, ",");
    printTimes("boost", gBoosts, ",");
    printf("  \"wake_ups_per_frame\": {\"monitor\": %.3f, \"boost\": %.3f, \"headroom\": "
           "%.3f}\n}\n",
           wakeUps[kMonitor], wakeUps[kBoost], wakeUps[kHeadroom]);
    return gReleases.empty() || gCheckpoints.empty() || gBoosts.empty() ? 1 : 0;
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
