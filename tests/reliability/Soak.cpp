// soak: uses the library for long and looks whether anything grows.
//
// A day of play in virtual time is four games of half an hour, on displays of different rates, with
// late frames, stalls and pauses; the rest of the day nothing happens. In real time, generated programs
// and the library's own threads compete with others for the processors, and the library is loaded and
// unloaded again and again.

#include <CLI/CLI.hpp>
#include <malloc.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>

#include "device/CindralLibrary.h"
#include "device/Process.h"
#include "sim/Simulation.h"
#include "sim/Unseen.h"
#include "tests/reliability/Player.h"

using namespace reliability;
using device::StandInDevice;

namespace {

constexpr int kPackages = 5;
constexpr int kGamesPerDay = 4;
constexpr int64_t kGameNs = 1800 * kSecond;
constexpr int64_t kDayNs = 24 * 3600 * kSecond;
// By then both trackers exist.
constexpr int64_t kWarmGames = 2;
// A list that grows by its nature keeps up to so many blocks more or less.
constexpr int64_t kSlackBlocks = 8;
// Stacks of two mappings each, which the C library keeps for later threads: a later program may have
// more of them at once. The thread sanitizer maps more as it needs it.
constexpr int kSlackMappings = 24;

struct Use {
    int threads = device::countThreads();
    int handles = device::countHandles();
    int mappings = device::countMappings();

    bool isFlatSince(const Use& then) const {
        return threads <= then.threads && handles <= then.handles &&
               (mappings <= then.mappings + kSlackMappings || sim::isUnderThreadSanitizer());
    }

    void print(const std::string& when) const {
        std::cout << when << threads << " threads, " << handles << " handles, " << mappings
                  << " mappings" << std::endl;
    }
};

void configureDevice() {
    std::vector<std::string> packages;
    for (int i = 0; i < kPackages; ++i) packages.push_back("com.example.game" + std::to_string(i));
    StandInDevice::instance().reset({{"vendor.perf.pfar2.enable", "1"},
                                     {"vendor.perf.phr.enable", "1"},
                                     {"vendor.perf.pfar2.hgpe.enable", "1"}},
                                    packages);
}

std::string layerOf(int64_t number) {
    char name[80];
    std::snprintf(name, sizeof(name), "SurfaceView[com.example.game%d/Main](BLAST)#%06d",
                  static_cast<int>(number % kPackages), static_cast<int>(number));
    return name;
}

class Month {
  public:
    explicit Month(int64_t days) : mDays(days), mDice(static_cast<uint64_t>(days)) {}

    bool play() {
        configureDevice();
        StandInDevice::instance().setEventSink([this](const device::Event& event) {
            mCalls += event.kind == device::EventKind::kServiceCall ? 1 : 0;
        });
        const device::ServiceLibraries services;
        const sim::Outcome outcome = sim::run(options(), [this] { live(); });
        if (!outcome.ok()) std::fputs(outcome.report.c_str(), stderr);
        std::cout << mDays << " days, " << mFrames << " frames, " << mCalls << " service calls, "
                  << (mFlat ? "nothing grew\n" : "something grew\n");
        return mFlat && outcome.ok();
    }

  private:
    static sim::Options options() {
        sim::Options options;
        options.stepBudget = UINT64_MAX;
        options.abortOnFailure = false;
        return options;
    }

    void live() {
        device::CindralLibrary library;
        mLibrary = &library;
        Shortage memory = countedMemory();
        memory.library = codeAround(reinterpret_cast<const void*>(library.init));
        setShortage(memory);
        library.init();
        for (int64_t games = 1; games <= mDays * kGamesPerDay; ++games) {
            const int64_t start = sim::now();
            playGame();
            sim::sleepUntil(start + kDayNs / kGamesPerDay);
            lookBack(games);
        }
    }

    void lookBack(int64_t games) {
        const Use use;
        const int64_t blocks = librarysLiveBlocks();
        if (games <= kWarmGames) {
            mWarm = use;
            mWarmBlocks = blocks;
        }
        mFlat = mFlat && use.isFlatSince(mWarm) && blocks <= mWarmBlocks + kSlackBlocks;
        if (games != kWarmGames && games != mDays * kGamesPerDay && mFlat) return;
        use.print("after " + std::to_string(games) + " games: " + std::to_string(blocks) +
                  " blocks of the library, ");
    }

    // A new layer for every game. Sometimes the display's rate changes in its course.
    void playGame() {
        mLayer = layerOf(mNextLayer++);
        setPeriod(0);
        const int64_t end = sim::now() + kGameNs;
        while (sim::now() < end) {
            const uint32_t happens = mDice.below(20'000);
            if (happens == 0) sim::sleepFor(static_cast<int64_t>(1 + mDice.below(30)) * kSecond);
            if (happens == 1) setPeriod(static_cast<int>(mDice.below(kGoodPeriods)));
            if (happens >= 2 && happens < 60)  // late by up to three periods
                sim::sleepFor(mPeriodNs * static_cast<int64_t>(mDice.below(300)) / 100);
            frame(happens % 16 != 0);
        }
    }

    void setPeriod(int index) {
        mPeriodNs = periodNs(index);
        mLibrary->setVsyncPeriod(mPeriodNs);
    }

    void frame(bool pending) {
        const int64_t start = sim::now();
        mLibrary->trackVsyncSignal();
        mLibrary->trackBufferIncrement(mLayer.c_str());
        mLibrary->trackBufferDecrement(mLayer.c_str(), pending ? 1 : 0);
        ++mFrames;
        sim::sleepUntil(start + mPeriodNs);
    }

    const int64_t mDays;
    Dice mDice;
    device::CindralLibrary* mLibrary = nullptr;
    std::string mLayer;
    int64_t mNextLayer = 0;
    int64_t mPeriodNs = 0;
    int64_t mFrames = 0;
    int64_t mCalls = 0;
    Use mWarm;
    int64_t mWarmBlocks = 0;
    bool mFlat = true;
};

// --- real time ---

constexpr int kLoadThreads = 2;
// By then the C library has the stacks of about as many threads as there ever are at once.
constexpr uint64_t kWarmRounds = 3;

// Threads that do nothing, for as long as it lives.
class Load {
  public:
    Load() {
        for (std::thread& thread : mThreads)
            thread = std::thread([this] {
                while (!mStop) {
                }
            });
    }
    ~Load() {
        mStop = true;
        for (std::thread& thread : mThreads) thread.join();
    }

  private:
    std::atomic<bool> mStop{false};
    std::thread mThreads[kLoadThreads];
};

// Programs with real threads, beside others that take the processors away. That memory is left behind
// is found by each round itself.
bool useInRealTime(int64_t seconds) {
    mallopt(M_ARENA_MAX, 1);  // it would map more of them whenever threads happen to compete
    int64_t hints = 0;
    StandInDevice::instance().setEventSink([&](const device::Event& event) {
        hints += event.entryPoint == device::EntryPoint::kPerfHint ? 1 : 0;
    });
    const Load load;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    Use warm;
    bool flat = true;
    uint64_t round = 0;
    for (; round <= kWarmRounds || std::chrono::steady_clock::now() < end; ++round) {
        playInRealTime(generate(round), "libcindral.so");
        if (round < kWarmRounds) warm = Use();
        flat = flat && Use().isFlatSince(warm);
    }
    warm.print("after " + std::to_string(kWarmRounds) + " rounds: ");
    Use().print("at the end: ");
    StandInDevice::instance().setEventSink({});
    std::cout << round << " loads and unloads, " << hints << " hints, "
              << (flat ? "nothing grew\n" : "something grew\n");
    return flat;
}

}  // namespace

int main(int argc, char** argv) {
    int64_t days = 0;
    int64_t seconds = 0;
    CLI::App app("uses the library for long and looks whether anything grows");
    app.add_option("--days", days, "of play in virtual time")->check(CLI::PositiveNumber);
    app.add_option("--seconds", seconds, "of real time, with real threads under load")
            ->check(CLI::PositiveNumber);
    app.require_option();
    CLI11_PARSE(app, argc, argv);
    try {
        const bool flat =
                (days == 0 || Month(days).play()) && (seconds == 0 || useInRealTime(seconds));
        return flat ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "soak: %s\n", error.what());
        return 2;
    }
}
