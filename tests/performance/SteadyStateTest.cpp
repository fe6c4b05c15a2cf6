// What a game costs once it plays, on every thread, in virtual time.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/library/Compositor.h"
#include "tests/reliability/Memory.h"
#include "tests/reliability/Violation.h"

namespace reliability {

void violate(const char* invariant, const std::string& text) {
    std::fprintf(stderr, "%s: %s\n", invariant, text.c_str());
    std::abort();
}

}  // namespace reliability

namespace {

void countAllocationsOf(const Compositor& game) {
    const auto codeOf = [](auto* function) {
        return reliability::codeAround(reinterpret_cast<const void*>(function));
    };
    reliability::Shortage memory;
    memory.library = codeOf(game.library.init);
    memory.program = codeOf(&countAllocationsOf);
    memory.device = codeOf(&device::StandInDevice::instance);
    reliability::setShortage(memory);
}

using Counts = std::map<std::string, int>;  // of each thread, by its name

// How often each thread of the library has woken from a condition.
Counts wakeUps() {
    Counts found;
    for (const sim::ThreadRecord& thread : sim::threads())
        if (thread.id != 0 && !thread.ended) found[thread.name] = thread.wakeUps;
    return found;
}

// A vsync, and 1 ms later a buffer, which is held until the release.
int64_t playFrame(Compositor& game, int64_t time) {
    game.vsyncAt(time);
    const int64_t back = game.queueAt(time + kMs);
    game.consume(kGame);
    return back;
}

// Plays a game with both regulators and power optimisation, past what only its beginning needs.
template <typename Body>
void playSteadily(Body body) {
    constexpr int kFirstFrames = 200;
    Scene scene;
    scene.set("vendor.perf.pfar2.hgpe.enable", "1");
    playGame(scene, [&](Compositor& game, int64_t last) {
        game.consume(kGame);
        game.startPacing();
        for (int i = 1; i <= kFirstFrames; ++i) playFrame(game, last + i * kPeriod60);
        body(game, last + (kFirstFrames + 1) * kPeriod60);
    });
}

}  // namespace

TEST(SteadyState, FrameInTime_WakesMonitorAndHeadroomThreadTwiceAndTheBoostThreadNever) {
    playSteadily([](Compositor& game, int64_t next) {
        constexpr int kFrames = 60;
        game.waitUntil(next - kMs);
        Counts before = wakeUps();
        for (int i = 0; i < kFrames; ++i) {
            const int64_t back = playFrame(game, next + i * kPeriod60);
            EXPECT_GT(back, next + i * kPeriod60 + kMs) << "it was not held";
        }
        game.waitUntil(next + kFrames * kPeriod60 - kMs);
        Counts added = wakeUps();
        for (auto& [thread, count] : added) count -= before[thread];
        EXPECT_EQ(added, (Counts{{"BLT", 2 * kFrames}, {"BP", 0}, {"PHR", 2 * kFrames}}));
    });
}

TEST(SteadyState, GameWithLateFrames_AllocatesNothingOnAnyThread) {
    playSteadily([](Compositor& game, int64_t next) {
        countAllocationsOf(game);
        const size_t boostsBefore = boosts().size();
        for (int i = 0; i < 300; ++i) {
            playFrame(game, next);
            next += i % 5 == 0 ? 3 * kPeriod60 / 2 : kPeriod60;
        }
        EXPECT_GT(boosts().size(), boostsBefore + 50);
        EXPECT_EQ(reliability::countedAllocations(), 0);
        // The same probe, where the library does allocate: a classification copies the name.
        game.queue("a layer of no application, with a name beyond 15 letters");
        EXPECT_GT(reliability::countedAllocations(), 0);
        reliability::setShortage({});
    });
}
