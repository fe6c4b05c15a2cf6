// The library under random schedules, and the sameness of runs.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <thread>

#include "tests/library/Compositor.h"

using device::Event;
using device::EventKind;

namespace {

constexpr int kBoostHintId = 0x1046;
constexpr int kNegativeBoostFlag = 0x10000;
constexpr int kSeeds = 2000;

Scene stormScene(uint64_t seed) {
    Scene scene;
    scene.set("vendor.perf.pfar2.hgpe.enable", "1");
    scene.schedule.schedule = sim::Schedule::kRandom;
    scene.schedule.seed = seed;
    scene.schedule.stepBudget = 2'000'000;
    return scene;
}

// Both games tracked, with their environment. Before any vsync period a rate of no class counts as
// the display's, so that a dozen slow frames are enough.
void build(Compositor& compositor) {
    compositor.library.init();
    for (int i = 0; i < 15; ++i) {
        for (const std::string& layer : {kGame, kOtherGame}) {
            compositor.queue(layer);
            for (int j = 0; j < 3; ++j) compositor.consume(layer, 1);
        }
        Compositor::waitUntil(Compositor::now() + 100 * kMs);
    }
}

// Producers, a consumer, vsyncs, and a compositor that changes its mind, all at once.
void storm(Compositor& compositor) {
    build(compositor);
    compositor.library.setVsyncPeriod(kPeriod60);
    const int64_t start = Compositor::now();
    const auto every = [start](int64_t interval, int times, auto&& act) {
        return std::thread([=] {
            for (int i = 1; i <= times; ++i) {
                Compositor::waitUntil(start + i * interval);
                act(i);
            }
        });
    };
    std::thread threads[] = {
            every(15 * kMs, 12, [&](int) { compositor.queue(kGame); }),
            every(7 * kMs, 20, [&](int) { compositor.queue(kOtherGame); }),
            every(20 * kMs, 6, [&](int) { compositor.queue(kGame); }),
            every(kPeriod60, 12, [&](int) { compositor.library.trackVsyncSignal(); }),
            every(9 * kMs, 20,
                  [&](int i) { compositor.consume(i % 3 == 0 ? kOtherGame : kGame, i % 2); }),
            every(60 * kMs, 4,
                  [&](int i) {
                      compositor.library.setVsyncPeriod(i % 2 == 0 ? kPeriod60 : kPeriod90);
                      compositor.library.clearConfigs();
                      compositor.library.init();
                      compositor.queue(kThirdGame);
                  }),
    };
    for (std::thread& thread : threads) thread.join();
    // A second later the first game is the silent one, and the third takes its place.
    Compositor::waitUntil(Compositor::now() + kSecond);
    for (int i = 0; i < 5; ++i) {
        compositor.queue(kThirdGame);
        Compositor::waitUntil(Compositor::now() + 20 * kMs);
    }
}

const std::string& nameOf(const sim::Outcome& outcome, int thread) {
    return outcome.threads[static_cast<size_t>(thread)].name;
}

// What has to hold of everything that was seen, whatever the schedule.
void checkInvariants(const sim::Outcome& outcome) {
    std::map<int, int> openSections;
    for (const Event& event : device::StandInDevice::instance().events()) {
        // The checker asks for the debug switch at both ends, and the storm turns it off in
        // between.
        if (nameOf(outcome, event.thread).empty()) continue;
        if (event.kind == EventKind::kTraceBegin) ++openSections[event.thread];
        if (event.kind == EventKind::kTraceEnd) {
            ASSERT_GE(--openSections[event.thread], 0) << "a section ended that had not begun";
        }
        if (event.kind == EventKind::kTraceBegin && event.text.rfind("headroom = ", 0) == 0) {
            const long headroom = std::atol(event.text.c_str() + 11);
            ASSERT_TRUE(headroom >= 6'666'666 && headroom <= 15'000'000) << event.text;
        }
        if (event.kind != EventKind::kServiceCall || event.arguments.empty() ||
            event.entryPoint != device::EntryPoint::kPerfHint ||
            event.arguments[0] != kBoostHintId) {
            continue;
        }
        const bool negative = (event.arguments[2] & kNegativeBoostFlag) != 0;
        ASSERT_EQ(nameOf(outcome, event.thread), negative ? "BLT" : "BP")
                << "no thread of the compositor may send " << device::describe(event);
    }
    for (const auto& [thread, open] : openSections) {
        ASSERT_EQ(open, 0) << "a section of thread " << thread << " never ended";
    }
}

}  // namespace

TEST(Schedules, RandomSchedules_EndWithEveryThreadJoinedAndKeepTheInvariants) {
    int paced = 0;
    int boosted = 0;
    int retired = 0;
    const int seeds = seedsToTry(kSeeds);
    for (int seed = 1; seed <= seeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const sim::Outcome outcome = play(stormScene(static_cast<uint64_t>(seed)), storm);
        ASSERT_NO_FATAL_FAILURE(checkInvariants(outcome));
        paced += countOf("trackQueueBuffer") > 0 ? 1 : 0;
        boosted += boosts().empty() ? 0 : 1;
        retired += countOf("~BufferLayerTracker") > 0 ? 1 : 0;
    }
    // The storm is one only if most runs come that far.
    EXPECT_GT(paced, seeds / 2);
    EXPECT_GT(boosted, seeds / 2);
    EXPECT_GT(retired, seeds / 2);
}

TEST(Schedules, SilentLayer_LosesItsRegulatorUnderEverySchedule) {
    const uint64_t seeds = std::min(300, seedsToTry(300));
    for (uint64_t seed = 1; seed <= seeds; ++seed) {
        Scene scene;
        scene.schedule.schedule = sim::Schedule::kRandom;
        scene.schedule.seed = seed;
        play(scene, [&](Compositor& compositor) {
            build(compositor);
            if (countOf("enable FrameRegulator") == 0) return;
            // In steps: a schedule may starve the monitor while this thread sleeps only once.
            for (int i = 0; i < 300 && countOf("disable FrameRegulator") == 0; ++i) {
                Compositor::waitUntil(Compositor::now() + kSecond);
            }
            EXPECT_GE(countOf("disable FrameRegulator"), 1) << "seed " << seed;
        });
    }
}

TEST(Schedules, SameSeed_GivesTheSameRecord) {
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        play(stormScene(seed), storm);
        const std::string first = record();
        play(stormScene(seed), storm);
        ASSERT_EQ(record(), first) << "seed " << seed;
    }
}
