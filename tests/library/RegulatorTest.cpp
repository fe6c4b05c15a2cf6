// The headroom regulator by itself: how its flags hand a release from one thread to the other.

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <thread>

#include "headroom/HeadroomRules.h"
#include "headroom/PresetHeadroomRegulator.h"
#include "tests/library/Component.h"
#include "tracker/BufferLayerTracker.h"

using android::BufferLayerTracker;
using android::PresetHeadroomRegulator;
using namespace android::cindral;

namespace {

// Does to a regulator what the letters of a script say, and tells how long each buffer was held. `timer`
// is the time from a vsync to its release.
std::vector<int64_t> holds(PresetHeadroomRegulator& regulator, int64_t period, int32_t displayClass,
                           int64_t timer, const std::string& script) {
    std::vector<int64_t> held;
    std::vector<std::thread> threads;
    int64_t vsync = 0;
    const auto later = [&](int64_t duration, const std::function<void()>& act) {
        threads.emplace_back([=] {
            sim::sleepFor(duration);
            act();
        });
    };
    const auto vsyncNow = [&] { regulator.onVsync(vsync = sim::now()); };
    const auto stop = [&] { regulator.forceStop(); };
    const auto report = [&](bool pending) { regulator.updateAccumulationStatus(pending); };
    const std::map<char, std::function<void()>> acts = {
            {'V', vsyncNow},
            // One whose time lies 5 ms behind its release.
            {'F', [&] { regulator.onVsync(sim::now() + timer + 5 * kMs); }},
            {'c', [&] { sim::sleepFor(period); }},  // the release is over
            {'r', [&] { sim::sleepUntil(vsync + timer - kMs / 2); }},
            {'Q',
             [&] {
                 const int64_t queued = sim::now();
                 regulator.trackQueueBuffer();
                 held.push_back(sim::now() - queued);
             }},
            {'P', [&] { report(true); }},
            {'N', [&] { report(false); }},
            {'-', [&] { regulator.setActiveStatus(false); }},
            {'+', [&] { regulator.setActiveStatus(true); }},
            {'^', [&] { regulator.increasePresetHeadroom(); }},
            {'=', [&] { regulator.setVsyncInfo(period, 0); }},
            {'~', [&] { regulator.setVsyncInfo(period - 1, displayClass); }},
            // On threads of their own: a vsync after the release of this one, and an early one; a
            // report in the middle of the first pass of a check for pending buffers; a stop.
            {'v', [&] { later(period * 3 / 5, vsyncNow); }},
            {'w', [&] { later(kMs, vsyncNow); }},
            {'p', [&] { later(timer + kMs / 2, [&] { report(true); }); }},
            {'n', [&] { later(timer + kMs / 2, [&] { report(false); }); }},
            {'s', [&] { later(3 * kMs, stop); }},
            {'x', stop},
    };
    for (const char letter : script) acts.at(letter)();
    for (std::thread& thread : threads) thread.join();
    return held;
}

}  // namespace

TEST(Regulator, Buffers_AreHeldAsLongAsTheirReleaseTakes) {
    for (const auto& [period, displayClass] :
         {std::pair{16'666'667, 60}, std::pair{11'111'111, 90}, std::pair{8'333'333, 120}}) {
        const HeadroomBounds bounds = headroomBounds(period, displayClass, 0.5F);
        const int64_t timer = period - bounds.min;
        const int64_t raised = period - raisedHeadroom(bounds.min, bounds.max);
        const int64_t anew = period - 1 - headroomBounds(period - 1, displayClass, 0.5F).min;
        using Case = std::tuple<const char*, const char*, std::vector<int64_t>>;
        const Case cases[] = {
                {"until the release", "VQ", {timer}},
                {"a release serves one buffer", "VcQwQ", {0, kMs + timer}},
                {"an early vsync releases and starts no timer", "VwQQ", {kMs, period}},
                {"a release is spent on a wait that ran out", "QVcVcQ", {period, 0}},
                {"a wait that a release ended leaves the next alone", "VQVcQ", {timer, 0}},
                {"inactive it holds nobody, but keeps its release", "Vc-QV+QQ", {0, 0, period}},
                {"another period sets the headroom back", "^=VQ~VQ", {raised, anew}},
                {"the check for pending buffers ends behind the vsync", "PFQ", {timer + 6 * kMs}},
                {"without a report it costs two passes", "PVQ", {timer + 2 * kMs}},
                {"a report of none ends it with its pass", "PVnQ", {timer + kMs}},
                {"a report of pending ones is worth a period", "PVpQ", {timer + kMs + period}},
                {"a report of none before the release costs nothing", "PVNQ", {timer}},
                {"a release in that check ends its pass, which counts, and is used up",
                 "VcPVrQQ",
                 {kMs / 2 + kMs, period + 2 * kMs}},
                {"a delay ends with the next release, which is used up",
                 "PVPvQNQ",
                 {period * 3 / 5 + timer, period}},
                {"a delay that runs out costs no release", "PVPQNVcQ", {timer + period, 0}},
                {"a stop lets a held buffer go and holds no other", "sQQ", {3 * kMs, 0}},
                {"switched on after its end, nobody releases", "Pxc+VQ", {period}}};
        for (const auto& [what, script, expected] : cases) {
            std::vector<int64_t> held;
            withClient({}, [&, period = period, displayClass = displayClass,
                            script = script](PerfProxy& client) {
                sp<PerfProxy> owner = &client;
                const sp<PresetHeadroomRegulator> regulator =
                        new PresetHeadroomRegulator(owner, true, true);
                regulator->setVsyncInfo(period, displayClass);
                regulator->setActiveStatus(true);
                sim::sleepFor(kMs);
                held = holds(*regulator, period, displayClass, timer, script);
                regulator->forceStop();
            });
            EXPECT_EQ(held, expected) << what << " at " << displayClass;
            EXPECT_EQ(seen().back(), "D Cindral.HeadroomRegulator: ~PresetHeadroomRegulator");
        }
    }
}

TEST(Regulator, SwitchedOnTwice_SaysItOnceAndHasLeftTheVsyncBeforeAlone) {
    withClient({}, [](PerfProxy& client) {
        sp<PerfProxy> owner = &client;
        const sp<PresetHeadroomRegulator> regulator =
                new PresetHeadroomRegulator(owner, false, true);
        sim::sleepFor(kMs);
        regulator->onVsync(sim::now());
        sim::sleepFor(kMs);
        StandInDevice::instance().clearEvents();
        regulator->setActiveStatus(true);
        regulator->setActiveStatus(true);
        EXPECT_EQ(seen(),
                  (std::vector<std::string>{"begin enable PHR",
                                            "D Cindral.HeadroomRegulator: enable PHR", "end"}));
        regulator->forceStop();
    });
}

TEST(Regulator, ReleaseInTheMomentABufferIsQueued_HoldsItNoLonger) {
    for (uint64_t seed = 1; seed <= 200; ++seed) {
        sim::Options options;
        options.schedule = sim::Schedule::kFewPreemptions;
        options.seed = seed;
        options.expectedSteps = 40;
        options.clockJumps = false;
        sim::run(options, [&] {
            sp<PerfProxy> client = new PerfProxy();
            const sp<PresetHeadroomRegulator> regulator =
                    new PresetHeadroomRegulator(client, true, false);
            regulator->setVsyncInfo(16'666'667, 60);
            regulator->setActiveStatus(true);
            sim::sleepFor(kMs);
            const int64_t release = sim::now() + 16'666'667 - 8'333'333;
            regulator->onVsync(sim::now());
            sim::sleepUntil(release);
            regulator->trackQueueBuffer();
            EXPECT_EQ(sim::now(), release) << seed;
            regulator->forceStop();
        });
    }
}

TEST(Tracker, End_WaitsForTheIncrementUnderWay) {
    const sim::Outcome outcome = sim::run({}, [] {
        sp<BufferLayerTracker> tracker = new BufferLayerTracker("layer", true, true, false);
        BufferLayerTracker* working = tracker.get();
        const int64_t start = sim::now();
        int64_t ended = 0;
        working->lockForWork();
        std::thread retirer([&] {
            tracker.clear();
            ended = sim::now();
        });
        sim::sleepFor(kMs);
        EXPECT_EQ(ended, 0);
        working->onBufferIncrement();
        retirer.join();
        EXPECT_EQ(ended, start + kMs);
    });
    EXPECT_TRUE(outcome.ok());
}
