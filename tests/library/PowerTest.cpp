// Negative boosts for early frames, and power optimisation.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

using device::EntryPoint;

namespace {

constexpr int64_t kEarly = 8 * kMs;
constexpr int64_t kSlightlySlow = 16'900'000;  // 59.17 frames a second instead of 60
constexpr int64_t kTooSlow = 17'100'000;       // 58.5 frames a second: class 60, but a frame short

// Only the frame regulator, with negative boosts.
Scene negativeBoostScene() {
    return Scene().frameRegulatorOnly().set("vendor.perf.pfar2.hgpe.enable", "1");
}

// Queues `frames` buffers, the first one a frame time after `time`; returns the time of the last.
int64_t queueEvery(Compositor& compositor, int64_t time, int64_t frameTime, int frames) {
    for (; frames > 0; --frames) compositor.queueAt(time += frameTime);
    return time;
}

std::vector<std::string> lockCalls() {
    std::vector<std::string> calls;
    for (const Sight& call : serviceCalls()) {
        if (call.what.rfind("perf_lock_", 0) == 0) calls.push_back(call.what);
    }
    return calls;
}

// Plays until `periods` more measuring periods have closed.
void playPeriods(Compositor& compositor, int64_t frameTime, int periods) {
    const device::StandInDevice& device = device::StandInDevice::instance();
    size_t seen = device.events().size();
    while (periods > 0) {
        compositor.queueAt(Compositor::now() + frameTime);
        for (const device::Event& event : device.events(seen)) {
            ++seen;
            const bool line = event.kind == device::EventKind::kLog;
            if (line && event.text.find("FPS:") != std::string::npos) --periods;
        }
    }
    // The monitor thread gets to see the last buffer.
    Compositor::waitUntil(Compositor::now() + 1);
}

// Four times on and withdrawn again, with a sample too few to try it a fifth time.
void loseFourTimes(Compositor& compositor) {
    playPeriods(compositor, kPeriod60, 2);
    for (int loss = 1; loss <= 4; ++loss) {
        playPeriods(compositor, kSlightlySlow, 3);
        EXPECT_EQ(countOf("pingpong occurs!"), loss);
        EXPECT_EQ(lockCalls().size(), static_cast<size_t>(4 * loss));
        playPeriods(compositor, kPeriod60, 3);
    }
    EXPECT_EQ(lockCalls().size(), 16U);
}

}  // namespace

TEST(NegativeBoost, MissedFrame_DropsItAndTheNextTwoEvaluationsAreSkipped) {
    int64_t missed = 0;
    playGame(negativeBoostScene(), [&](Compositor& compositor, int64_t last) {
        missed = queueEvery(compositor, last, kEarly, 2) + kPeriod60;
        compositor.queueAt(missed + kMs);  // late, so not evaluated
        queueEvery(compositor, missed + kMs, kEarly, 3);
    });
    const std::vector<Sight> seen = boosts();
    ASSERT_GE(seen.size(), 5U);
    EXPECT_EQ(seen[2], (Sight{missed, "0/65536"}));
    EXPECT_EQ(seen[3], (Sight{missed, "8/1500"}))
            << "with negative boosts no checkpoint is skipped";
    EXPECT_EQ(seen[4], (Sight{missed + kMs + 3 * kEarly, "500/65566"}));
}

TEST(NegativeBoost, Properties_SetTheLowestStrengthAndTheHighestTarget) {
    playGame(negativeBoostScene()
                     .set("vendor.perf.pfar2.hgpe.max_neboost", "-10")
                     .set("vendor.perf.pfar2.hgpe.max_rendertime", "20"),
             [](Compositor& compositor, int64_t last) { queueEvery(compositor, last, kEarly, 2); });
    EXPECT_EQ(boosts().back().what, "500/65546");
    // 20 % is lifted to 60.
    EXPECT_EQ(countOf("renderTime(8000000), targetRenderTime(10000000), coe(-20)"), 2);
}

TEST(NegativeBoost, NeedsItsPropertyAndTheFrameRegulator) {
    for (const Scene& scene : {Scene().frameRegulatorOnly(),
                               Scene().headroomOnly().set("vendor.perf.pfar2.hgpe.enable", "1")}) {
        playGame(scene, [](Compositor& game, int64_t last) { queueEvery(game, last, kEarly, 3); });
        EXPECT_TRUE(boosts().empty());
        EXPECT_EQ(record().find("hgpe.max"), std::string::npos) << "nobody asks for its limits";
    }
}

TEST(NegativeBoost, Target_FollowsTheVsyncPeriod) {
    playGame(negativeBoostScene(), [](Compositor& compositor, int64_t last) {
        compositor.library.setVsyncPeriod(kPeriod90);
        Compositor::waitUntil(compositor.queueAt(last + kMs) + 1);
        EXPECT_EQ(countOf("renderTime(1000000), targetRenderTime(7777777), coe(-88)"), 1);
    });
}

TEST(NegativeBoost, PacedFramesMoreThan2msOff_MoveTheTargetDownBy10AndUpBy3AtEveryRate) {
    for (const int64_t period : kPeriods) {
        playGame(
                Scene().set("vendor.perf.pfar2.hgpe.enable", "1"),
                [&](Compositor& game, int64_t time) {
                    game.startPacing();
                    // Without vsyncs each buffer is held for a period.
                    for (const int64_t late : {2'000'000, 2'000'001, -2'000'000, -2'000'001})
                        time = game.queueAt(time + period + late);
                },
                period);
        EXPECT_EQ(countOf("prev thresh:70, curr thresh:60"), 1) << period;
        EXPECT_EQ(countOf("prev thresh:60, curr thresh:63"), 1) << period;
        EXPECT_EQ(markersOf({"reduceThreshold", "increaseThreshold"}),
                  (std::vector<std::string>{"reduceThreshold", "increaseThreshold"}));
        if (period != kPeriod60) continue;
        EXPECT_EQ(markersOf({"headroom = ", "reduceThreshold", "increaseThreshold"}),
                  (std::vector<std::string>{"reduceThreshold", "headroom = 9333333",
                                            "headroom = 8333333", "increaseThreshold"}))
                << "late frames move the threshold first, early ones the headroom";
    }
}

TEST(PowerOptimisation, LossOfFrames_WithdrawsItAndAfterFourItIsNotTriedAgainUntilASilence) {
    playGame(Scene().frameRegulatorOnly(), [](Compositor& compositor, int64_t) {
        loseFourTimes(compositor);
        EXPECT_EQ(countOf("already reach pingpong threshold."), 1);
        playPeriods(compositor, kPeriod60, 1);
        EXPECT_EQ(countOf("already reach pingpong threshold."), 2);
        EXPECT_EQ(lockCalls().size(), 16U);
        // The regulator gives up, and its losses are forgotten.
        Compositor::waitUntil(Compositor::now() + 2 * kSecond);
        playPeriods(compositor, kPeriod60, 3);
        EXPECT_EQ(lockCalls().size(), 18U);
    });
}

TEST(PowerOptimisation, LayerAFrameBelowItsRate_IsOptimisedOnlyWhileItRunsAheadOfTheDisplay) {
    for (const int64_t period : kPeriods) {
        const double rate = 1e9 / static_cast<double>(period) - 1.5;
        for (const int pending : {0, 1}) {
            play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
                compositor.start(kGame, period);
                compositor.play(kGame, static_cast<int>(3.3 * rate),
                                static_cast<int64_t>(1e9 / rate), pending);
            });
            EXPECT_EQ(countOf("enable power opt."), pending) << period;
        }
    }
}

TEST(PowerOptimisation, MissedPeriods_AreCountedAcrossEvaluations) {
    playGame(Scene(), [](Compositor& compositor, int64_t) {
        playPeriods(compositor, kPeriod60, 5);  // on and verified
        playPeriods(compositor, kTooSlow, 3);
        EXPECT_EQ(countOf("disable power opt as not meet pre-condition."), 1);
        EXPECT_EQ(lockCalls().size(), 4U);
        // The headroom regulator goes on, and its being active is enough.
        compositor.startPacing();
        const int64_t frame = kTooSlow - kPeriod60;  // every buffer is held for a period
        playPeriods(compositor, frame, 1);
        EXPECT_EQ(countOf("eliminate the data of switch"), 1);
        playPeriods(compositor, frame, 2);
        EXPECT_EQ(countOf("enable power opt."), 1);
        playPeriods(compositor, frame, 1);
        EXPECT_EQ(countOf("enable power opt."), 2);
    });
}

TEST(PowerOptimisation, RateOfAnotherClass_HandsTheLocksBackAndForgetsTheSamples) {
    // The second scene lacks the monitor, so that nobody else can hand them back; and loses frames.
    for (const bool loses : {false, true}) {
        Scene scene = Scene().frameRegulatorOnly();
        if (loses) scene.schedule.failThreadCreation = 2;
        playGame(scene, [&](Compositor& compositor, int64_t) {
            playPeriods(compositor, kPeriod60, 1);  // two samples
            playPeriods(compositor, 40 * kMs, 1);
            playPeriods(compositor, kPeriod60, 2);
            EXPECT_TRUE(lockCalls().empty());
            playPeriods(compositor, kPeriod60, 1);
            EXPECT_EQ(lockCalls().size(), 2U);
            EXPECT_LT(record().find("enable power opt."), record().find("perf_lock_acq"));
            playPeriods(compositor, kPeriod60, 2);  // two samples of the verification
            playPeriods(compositor, 40 * kMs, 1);
            ASSERT_EQ(lockCalls().size(), 4U);
            EXPECT_EQ(serviceCalls(EntryPoint::kPerfLockRel)[0].time,
                      timesOf("disable FrameRegulator").back());
            playPeriods(compositor, kPeriod60, 3);
            playPeriods(compositor, loses ? kSlightlySlow : kPeriod60, 3);
            EXPECT_EQ(countOf("pingpong occurs!"), loses ? 1 : 0);
            EXPECT_EQ(countOf("no pingpong for poweropt."), loses ? 0 : 1);
        });
    }
}

TEST(PowerOptimisation, RegulatorThatGivesUp_HandsTheLocksBack) {
    playGame(Scene().frameRegulatorOnly(), [](Compositor& compositor, int64_t) {
        playPeriods(compositor, kPeriod60, 2);
        const int64_t last = Compositor::now() - 1;
        Compositor::waitUntil(last + 2 * kSecond);
        const int64_t off = last + kPeriod60 + 2 * (kPeriod60 / 2) + kSecond;
        EXPECT_EQ(
                serviceCalls(EntryPoint::kPerfLockRel),
                (std::vector<Sight>{{off, "perf_lock_rel(1) = 0"}, {off, "perf_lock_rel(2) = 0"}}));
    });
}

TEST(PowerOptimisation, PropertiesLevelAndWeight_DecideWhichLocksAreUsed) {
    struct Case {
        const char* property;
        const char* value;
        int weight;
        std::vector<std::string> locks;
    };
    const std::string pl = "perf_lock_acq(0, 0, {0x41444000, 0}, 2) = 1";
    const std::string coreControl = "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 1";
    const std::string coreControlToo = "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 2";
    for (const Case& c : {Case{"vendor.perf.pfar2.disable_pl", "1", 1, {pl, coreControlToo}},
                          Case{"vendor.perf.pfar2.disable_pl", "0", 1, {coreControl}},
                          Case{"vendor.perf.pfar2.disable_core_ctl", "0", 1, {pl}},
                          Case{"vendor.perf.pfar2.boost_level", "2", 1, {}},
                          Case{"vendor.perf.pfar2.boost_level", "1", 0, {pl}}}) {  // no game
        Scene scene = Scene().frameRegulatorOnly().set(c.property, c.value);
        scene.weights["com.example.game"] = c.weight;
        playGame(scene, [](Compositor& game, int64_t) { playPeriods(game, kPeriod60, 2); });
        EXPECT_EQ(countOf("enable power opt."), 1);
        EXPECT_EQ(lockCalls(), c.locks) << c.property;
    }
}
