// What of a captured interval is work, and what hints do to work.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "replay/play/Clocks.h"
#include "replay/play/Work.h"

namespace replay {
namespace {

using Times = std::vector<int64_t>;
constexpr int64_t kMs = 1'000'000;

Times inMs(Times times) {
    for (int64_t& time : times) time /= kMs;
    return times;
}

// A queue of three buffers at a period of 10 ms. The buffer of 30 ms finds the queue full, as one is
// on the screen; that of 90 ms stalls, and those after it hurry.
LayerEvents layer() {
    LayerEvents events;
    events.queueTimesNs = {6 * kMs,  14 * kMs, 20 * kMs,  30 * kMs,
                           90 * kMs, 96 * kMs, 101 * kMs, 109 * kMs};
    events.consumes = {{11 * kMs, 0}, {23 * kMs, 1}, {33 * kMs, 1},  {43 * kMs, 0},
                       {93 * kMs, 0}, {99 * kMs, 0}, {103 * kMs, 0}, {113 * kMs, 0}};
    return events;
}

TEST(Work, Estimators_ReplaceWhatWasInferredEachInItsWay) {
    ASSERT_EQ(buffersOf(layer(), {}), std::vector<int>({3, 4}));
    // The buffer of 30 ms had to wait until 23 ms for one, that of 90 ms until 33 ms.
    const std::vector<int64_t> free = freeTimesNs(layer(), 3);
    EXPECT_EQ(inMs({free[3], free[4]}), Times({23, 33}));
    EXPECT_LT(free[1], 0);
    const std::pair<const char*, Times> kCases[] = {
            {"inferred", {4, 4, 4, 4, 4, 4, 4, 4}},
            {"interval", {6, 8, 6, 10, 60, 6, 5, 8}},
            {"percent:50", {2, 2, 2, 2, 2, 2, 2, 2}},
            {"fixed:7", {7, 7, 7, 7, 7, 7, 7, 7}},
    };
    for (const auto& [name, expected] : kCases) {
        const WorkEstimator estimator = parseWorkEstimator(name);
        EXPECT_EQ(estimator.name(), name);
        std::vector<FrameWork> work(8, FrameWork{4 * kMs});
        applyEstimator(estimator, layer(), 10 * kMs, work);
        Times times;
        for (const FrameWork& frame : work) times.push_back(frame.workNs);
        EXPECT_EQ(inMs(times), expected) << name;
    }
}

device::Event hint(int64_t timeNs, int durationMs, int type) {
    device::Event event;
    event.entryPoint = device::EntryPoint::kPerfHint;
    event.timeNs = timeNs;
    event.arguments = {0x1046, durationMs, type};
    return event;
}

TEST(Clocks, Hints_ChangeTheSpeedUntilTheyLapseOrAreTakenBack) {
    constexpr int kNegative = 0x10000;
    struct Case {
        const char* what;
        std::vector<device::Event> hints;
        int64_t expectedMs;  // of work in 100 ms
    };
    const Case kCases[] = {
            {"no hint", {}, 100},
            {"a boost that lapses", {hint(0, 20, 2000)}, 110},
            {"a boost taken back", {hint(10 * kMs, 1000, 10000), hint(30 * kMs, 0, 0)}, 110},
            {"a boost replaced", {hint(0, 1000, 10000), hint(10 * kMs, 10, 2000)}, 110},
            {"negative, strength 25", {hint(0, 500, 25 | kNegative)}, 80},
            {"negative, taken back",
             {hint(0, 500, 25 | kNegative), hint(50 * kMs, 0, kNegative)},
             90},
            {"both", {hint(0, 500, 25 | kNegative), hint(0, 1000, 10000)}, 120},
    };
    for (const Case& test : kCases) {
        Clocks clocks({50, 100});
        for (const device::Event& event : test.hints) clocks.onCall(event);
        EXPECT_EQ(clocks.doneAt(100 * kMs), test.expectedMs * kMs * Clocks::kNormalSpeed)
                << test.what;
    }
    Clocks none({});
    none.onCall(hint(0, 1000, 10000));
    none.onCall(hint(0, 500, 25 | kNegative));
    EXPECT_EQ(none.doneAt(100 * kMs), 100 * kMs * Clocks::kNormalSpeed);
}

}  // namespace
}  // namespace replay
