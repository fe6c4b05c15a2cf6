// Negative boosts for early frames, and power optimisation.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

using standin::EntryPoint;

namespace {

constexpr int64_t kEarly = 8 * kMs;
constexpr int64_t kSlightlySlow = 16'900'000;  // 59.17 frames a second instead of 60
constexpr char kByPower[] = "release negative boost by  power";

// Only the frame regulator, with negative boosts.
Scene negativeBoostScene() {
    return Scene().frameRegulatorOnly().set("vendor.perf.pfar2.hgpe.enable", "1");
}

// Queues `frames` buffers, the first one a frame time after `time`; returns the time of the last.
int64_t queueEvery(Compositor& compositor, int64_t time, int64_t frameTime, int frames) {
    for (int i = 0; i < frames; ++i) {
        time += frameTime;
        Compositor::waitUntil(time);
        compositor.queue(kGame);
    }
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
    const standin::Device& device = standin::Device::instance();
    size_t seen = device.events().size();
    while (periods > 0) {
        Compositor::waitUntil(Compositor::now() + frameTime);
        compositor.queue(kGame);
        for (const standin::Event& event : device.events(seen)) {
            ++seen;
            const bool line = event.kind == standin::EventKind::kLog;
            if (line && event.text.find("FPS:") != std::string::npos) --periods;
        }
    }
    // The monitor thread gets to see the last buffer.
    Compositor::waitUntil(Compositor::now() + 1);
}

}  // namespace

TEST(NegativeBoost, EarlyFrames_SendTheOldStrengthOnceAndThenTheNewOne) {
    int64_t last = 0;
    play(negativeBoostScene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = compositor.playUntilEnvironment(kGame);
        queueEvery(compositor, last, kEarly, 4);
    });
    // 8 ms of a target of 70 % are 32 points early, cut to 30; repeating them changes nothing.
    EXPECT_EQ(boosts(),
              (std::vector<Sight>{{last + kEarly, "500/65536"}, {last + 2 * kEarly, "500/65566"}}));
}

TEST(NegativeBoost, MissedFrame_DropsItAndTheNextTwoEvaluationsAreSkipped) {
    int64_t last = 0;
    int64_t missed = 0;
    play(negativeBoostScene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = queueEvery(compositor, compositor.playUntilEnvironment(kGame), kEarly, 2);
        missed = last + kPeriod60;
        Compositor::waitUntil(missed + kMs);
        compositor.queue(kGame);  // late, so not evaluated
        queueEvery(compositor, missed + kMs, kEarly, 3);
    });
    const std::vector<Sight> seen = boosts();
    ASSERT_GE(seen.size(), 5U);
    EXPECT_EQ(seen[2], (Sight{missed, "0/65536"}));
    EXPECT_EQ(seen[3], (Sight{missed, "8/1500"}))
            << "with negative boosts no checkpoint is skipped";
    EXPECT_EQ(seen[4], (Sight{missed + kMs + 3 * kEarly, "500/65566"}));
}

TEST(NegativeBoost, SlowFrame_DropsItWithoutACooldown) {
    int64_t last = 0;
    play(negativeBoostScene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = queueEvery(compositor, compositor.playUntilEnvironment(kGame), kEarly, 2);
        queueEvery(compositor, last, 12 * kMs, 1);  // in time, but beyond 70 %
        queueEvery(compositor, last + 12 * kMs, kEarly, 1);
    });
    ASSERT_EQ(boosts().size(), 4U);
    EXPECT_EQ(boosts()[2], (Sight{last + 12 * kMs, "0/65536"}));
    EXPECT_EQ(boosts()[3], (Sight{last + 12 * kMs + kEarly, "500/65566"}));
    EXPECT_EQ(countOf(kByPower), 1);
}

TEST(NegativeBoost, RunningStrength_IsSentAgainAfterHalfASecond) {
    int64_t last = 0;
    play(negativeBoostScene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        last = compositor.playUntilEnvironment(kGame);
        queueEvery(compositor, last, kEarly, 64);
    });
    // The first one was sent with the first early frame, the 63rd after it is the first beyond 500
    // ms.
    const int64_t again = last + kEarly + 63 * kEarly;
    ASSERT_EQ(boosts().size(), 3U);
    EXPECT_EQ(boosts()[2], (Sight{again, "500/65566"}));
}

TEST(NegativeBoost, ReleaseAcquireRelease_CountsAsAPingpongOnlyWithinTwoPeriodsEach) {
    for (const int64_t delay : {int64_t{0}, 40 * kMs}) {
        play(negativeBoostScene(), [&](Compositor& compositor) {
            compositor.start(kGame);
            int64_t time =
                    queueEvery(compositor, compositor.playUntilEnvironment(kGame), kEarly, 2);
            time += kPeriod60 + kMs + delay;  // missed
            Compositor::waitUntil(time);
            compositor.queue(kGame);
            time = queueEvery(compositor, time, 4 * kMs, 3);  // two are skipped, the third acquires
            Compositor::waitUntil(time + kPeriod60 + kMs);    // missed again
        });
        EXPECT_EQ(countOf("pingpongCount(1)"), delay == 0 ? 1 : 0) << delay;
    }
}

TEST(NegativeBoost, Properties_SetTheLowestStrengthAndTheHighestTarget) {
    int64_t last = 0;
    play(negativeBoostScene()
                 .set("vendor.perf.pfar2.hgpe.max_neboost", "-10")
                 .set("vendor.perf.pfar2.hgpe.max_rendertime", "20"),
         [&](Compositor& compositor) {
             compositor.start(kGame);
             last = compositor.playUntilEnvironment(kGame);
             queueEvery(compositor, last, kEarly, 2);
         });
    EXPECT_EQ(boosts().back().what, "500/65546");
    // 20 % is lifted to 60.
    EXPECT_EQ(countOf("renderTime(8000000), targetRenderTime(10000000), coe(-20)"), 2);
}

TEST(NegativeBoost, NeedsItsPropertyAndTheFrameRegulator) {
    for (Scene scene : {Scene().frameRegulatorOnly(),
                        Scene().headroomOnly().set("vendor.perf.pfar2.hgpe.enable", "1")}) {
        play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            queueEvery(compositor, compositor.playUntilEnvironment(kGame), kEarly, 3);
        });
        EXPECT_TRUE(boosts().empty());
        for (const Sight& call : serviceCalls()) {
            EXPECT_EQ(call.what.find("hgpe.max"), std::string::npos)
                    << "nobody asks for its limits";
        }
    }
}

TEST(NegativeBoost, Target_FollowsTheVsyncPeriod) {
    play(negativeBoostScene(), [](Compositor& compositor) {
        compositor.start(kGame);
        const int64_t last = compositor.playUntilEnvironment(kGame);
        compositor.library.setVsyncPeriod(kPeriod90);
        queueEvery(compositor, last, kMs, 1);
        Compositor::waitUntil(Compositor::now() + 1);
        EXPECT_EQ(countOf("renderTime(1000000), targetRenderTime(7777777), coe(-88)"), 1);
    });
}

TEST(NegativeBoost, PacedFrames_MoveTheTargetDownBy10AndUpBy3) {
    play(Scene().set("vendor.perf.pfar2.hgpe.enable", "1"), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
        compositor.consume(kGame, 0);
        queueEvery(compositor, Compositor::now(), kPeriod60 + 3 * kMs, 1);
        queueEvery(compositor, Compositor::now(), kMs, 1);
    });
    std::vector<std::string> moves;
    for (const Sight& marker : markers()) {
        if (marker.what.rfind("headroom = ", 0) == 0 || marker.what == "reduceThreshold" ||
            marker.what == "increaseThreshold") {
            moves.push_back(marker.what);
        }
    }
    EXPECT_EQ(moves, (std::vector<std::string>{"reduceThreshold", "headroom = 9333333",
                                               "headroom = 8333333", "increaseThreshold"}))
            << "late frames move the threshold first, early ones the headroom";
    EXPECT_EQ(countOf("prev thresh:70, curr thresh:60"), 1);
    EXPECT_EQ(countOf("prev thresh:60, curr thresh:63"), 1);
}

TEST(PowerOptimisation, ThreeSteadyPeriods_SwitchPlAndCoreControlOff) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        playPeriods(compositor, kPeriod60, 1);
        EXPECT_TRUE(lockCalls().empty());
        playPeriods(compositor, kPeriod60, 1);
        EXPECT_EQ(lockCalls(),
                  (std::vector<std::string>{"perf_lock_acq(0, 0, {0x41444000, 0}, 2) = 1",
                                            "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 2"}));
        playPeriods(compositor, kPeriod60, 3);
        EXPECT_EQ(countOf("no pingpong for poweropt."), 1);
        EXPECT_EQ(lockCalls().size(), 2U);
    });
}

TEST(PowerOptimisation, LossOfFrames_WithdrawsItAndAfterFourLossesItIsNotTriedAgain) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        playPeriods(compositor, kPeriod60, 2);
        for (int loss = 1; loss <= 4; ++loss) {
            playPeriods(compositor, kSlightlySlow, 3);
            EXPECT_EQ(countOf("pingpong occurs!"), loss);
            EXPECT_EQ(lockCalls().size(), static_cast<size_t>(4 * loss));
            playPeriods(compositor, kPeriod60, 3);
        }
        EXPECT_EQ(countOf("already reach pingpong threshold."), 1);
        EXPECT_EQ(lockCalls().size(), 16U);
        playPeriods(compositor, kPeriod60, 1);
        EXPECT_EQ(countOf("already reach pingpong threshold."), 2);
    });
}

TEST(PowerOptimisation, LayerBelowItsRate_IsOptimisedOnlyWhileItRunsAheadOfTheDisplay) {
    constexpr int64_t kTooSlow = 17'100'000;  // 58.5 frames a second: class 60, but a frame short
    for (const int pending : {0, 1}) {
        play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
            compositor.start(kGame);
            compositor.play(kGame, 190, kTooSlow, pending);
        });
        EXPECT_EQ(countOf("enable power opt."), pending);
    }
}

TEST(PowerOptimisation, MissedPeriods_AreCountedAcrossEvaluations) {
    constexpr int64_t kTooSlow = 17'100'000;
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        playPeriods(compositor, kPeriod60, 5);  // on and verified
        playPeriods(compositor, kTooSlow, 3);
        EXPECT_EQ(countOf("disable power opt as not meet pre-condition."), 1);
        EXPECT_EQ(lockCalls().size(), 4U);
        // The headroom regulator goes on, and its being active is enough.
        for (int i = 0; i < 31; ++i) compositor.consume(kGame, 1);
        compositor.consume(kGame, 0);
        const int64_t frame = kTooSlow - kPeriod60;  // every buffer is held for a period
        playPeriods(compositor, frame, 1);
        EXPECT_EQ(countOf("eliminate the data of switch"), 1);
        playPeriods(compositor, frame, 2);
        EXPECT_EQ(countOf("enable power opt."), 1);
        playPeriods(compositor, frame, 1);
        EXPECT_EQ(countOf("enable power opt."), 2);
    });
}

TEST(PowerOptimisation, LossesAreForgottenWhenTheRegulatorGivesUp) {
    play(Scene().frameRegulatorOnly(), [](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        playPeriods(compositor, kPeriod60, 2);
        for (int loss = 1; loss <= 4; ++loss) {
            playPeriods(compositor, kSlightlySlow, 3);
            playPeriods(compositor, kPeriod60, 3);
        }
        EXPECT_EQ(lockCalls().size(), 16U);
        Compositor::waitUntil(Compositor::now() + 2 * kSecond);
        playPeriods(compositor, kPeriod60, 3);
        EXPECT_EQ(lockCalls().size(), 18U);
    });
}

TEST(PowerOptimisation, RateOfAnotherClass_HandsTheLocksBackAndForgetsTheSamples) {
    for (const bool monitor : {true, false}) {
        Scene scene = Scene().frameRegulatorOnly();
        if (!monitor) scene.schedule.failThreadCreation = 2;  // nobody else to hand them back
        play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.playUntilEnvironment(kGame);
            playPeriods(compositor, kPeriod60, 1);  // two samples
            playPeriods(compositor, 40 * kMs, 1);
            playPeriods(compositor, kPeriod60, 2);
            EXPECT_TRUE(lockCalls().empty());
            playPeriods(compositor, kPeriod60, 1);
            EXPECT_EQ(lockCalls().size(), 2U);
            EXPECT_LT(record().find("enable power opt."), record().find("perf_lock_acq"));
            playPeriods(compositor, 40 * kMs, 1);
            ASSERT_EQ(lockCalls().size(), 4U);
            EXPECT_EQ(serviceCalls(EntryPoint::kPerfLockRel)[0].time,
                      timesOf("disable FrameRegulator").back());
        });
    }
}

TEST(PowerOptimisation, RegulatorThatGivesUp_HandsTheLocksBack) {
    int64_t last = 0;
    play(Scene().frameRegulatorOnly(), [&](Compositor& compositor) {
        compositor.start(kGame);
        compositor.playUntilEnvironment(kGame);
        playPeriods(compositor, kPeriod60, 2);
        last = Compositor::now() - 1;
        Compositor::waitUntil(last + 2 * kSecond);
    });
    const int64_t off = last + kPeriod60 + 2 * (kPeriod60 / 2) + kSecond;
    const std::vector<Sight> released = serviceCalls(EntryPoint::kPerfLockRel);
    EXPECT_EQ(released,
              (std::vector<Sight>{{off, "perf_lock_rel(1) = 0"}, {off, "perf_lock_rel(2) = 0"}}));
}

TEST(PowerOptimisation, PropertiesLevelAndWeight_DecideWhichLocksAreUsed) {
    struct Case {
        const char* property;
        const char* value;
        int weight;
        const char* onlyLock;  // part of the one call that remains; null: none remains
    };
    const Case cases[] = {
            {"vendor.perf.pfar2.disable_pl", "0", 1, "0x41000000"},
            {"vendor.perf.pfar2.disable_core_ctl", "0", 1, "0x41444000"},
            {"vendor.perf.pfar2.boost_level", "2", 1, nullptr},
            {"vendor.perf.pfar2.boost_level", "1", 0, "0x41444000"},  // no game
    };
    for (const Case& c : cases) {
        Scene scene = Scene().frameRegulatorOnly().set(c.property, c.value);
        scene.weights["com.example.game"] = c.weight;
        play(scene, [](Compositor& compositor) {
            compositor.start(kGame);
            compositor.playUntilEnvironment(kGame);
            playPeriods(compositor, kPeriod60, 2);
        });
        EXPECT_EQ(countOf("enable power opt."), 1);
        ASSERT_EQ(lockCalls().size(), c.onlyLock != nullptr ? 1U : 0U) << c.property;
        if (c.onlyLock != nullptr) {
            EXPECT_NE(lockCalls()[0].find(c.onlyLock), std::string::npos);
        }
    }
}
