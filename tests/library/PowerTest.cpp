// Negative boosts for early frames, and power optimisation.

#include <gtest/gtest.h>

#include "tests/library/Compositor.h"

using device::StandInDevice;

namespace {

// Only the frame regulator, with negative boosts.
Scene negativeBoostScene() {
    return Scene().frameRegulatorOnly().set("vendor.perf.pfar2.hgpe.enable", "1");
}

// What power optimisation said and did since the last call, a sign each; | for a measuring period.
std::string news() {
    const std::pair<const char*, char> signs[] = {{": FPS:", '|'},
                                                  {"enable power opt.", 'E'},
                                                  {": pingpong occurs!", 'p'},
                                                  {"no pingpong for poweropt.", 'v'},
                                                  {"already reach pingpong threshold.", 'r'},
                                                  {"eliminate the data of switch", 'e'},
                                                  {"disable power opt as not meet", 'd'},
                                                  {"perf_lock_acq", '+'},
                                                  {"perf_lock_rel", '-'}};
    std::string seen;
    for (const device::Event& event : StandInDevice::instance().events()) {
        const std::string line = device::describe(event);
        for (const auto& [text, sign] : signs) seen.append(line.find(text) != line.npos, sign);
    }
    StandInDevice::instance().clearEvents();
    return seen;
}

// Plays a measuring period for each letter, at its frame time; P begins pacing, and z is a silence, at
// which the frame regulator gives up. Returns what came of it.
std::string playPeriods(Compositor& compositor, const std::string& letters) {
    constexpr int64_t kTooSlow = 17'100'000;  // 58.5 frames a second: class 60, but a frame short
    const std::map<char, int64_t> frameTimes = {
            {'=', kPeriod60},
            {'~', 16'900'000 /* 59.17 frames a second */},
            {'<', kTooSlow},
            {'h', kTooSlow - kPeriod60 /* and held for a period */},
            {'/', 40 * kMs}};
    std::string seen;
    for (const char letter : letters) {
        if (letter == 'P') compositor.startPacing();
        if (letter == 'z') Compositor::waitUntil(Compositor::now() + 2 * kSecond);
        const auto frameTime = frameTimes.find(letter);
        for (std::string period; frameTime != frameTimes.end() && period.empty(); seen += period) {
            compositor.queueAt(Compositor::now() + frameTime->second);
            period = news();
        }
        Compositor::waitUntil(Compositor::now() +
                              1);  // the monitor thread gets to see the last buffer
        seen += news();
    }
    return seen;
}

}  // namespace

TEST(NegativeBoost, EarlyFrames_GetOneWithinThePropertiesLimitsUntilAFrameIsMissed) {
    const Scene scene = negativeBoostScene()
                                .set("vendor.perf.pfar2.hgpe.max_neboost", "-10")
                                .set("vendor.perf.pfar2.hgpe.max_rendertime", "20");
    playGame(scene, [](Compositor& compositor, int64_t last) {
        const auto queueEarly = [&](int frames) {
            for (; frames > 0; --frames) last = compositor.queueAt(last + 8 * kMs);
        };
        queueEarly(2);
        // 20 % is lifted to 60.
        EXPECT_EQ(countOf("renderTime(8000000), targetRenderTime(10000000), coe(-20)"), 1);
        const int64_t missed = last + kPeriod60;
        compositor.consume(kGame, 1);  // gives the checkpoint another period, but not this boost
        last = compositor.queueAt(missed + kPeriod60 + kMs);  // not evaluated; nor are the next two
        queueEarly(3);
        Compositor::waitUntil(last + 1);
        EXPECT_EQ(boosts(), (std::vector<Sight>{{missed - kPeriod60 - 8 * kMs, "500/65536"},
                                                {missed - kPeriod60, "500/65546"},
                                                {missed, "0/65536"},
                                                // With negative boosts no checkpoint is skipped.
                                                {missed + kPeriod60, "8/1500"},
                                                {last, "500/65546"}}));
        compositor.library.setVsyncPeriod(kPeriod90);
        Compositor::waitUntil(compositor.queueAt(last + kMs) + 1);
        EXPECT_EQ(countOf("renderTime(1000000), targetRenderTime(6666666), coe(-85)"), 1);
    });
}

TEST(NegativeBoost, NeedsItsPropertyAndTheFrameRegulator) {
    for (const Scene& scene : {Scene().frameRegulatorOnly(),
                               Scene().headroomOnly().set("vendor.perf.pfar2.hgpe.enable", "1")}) {
        playGame(scene, [](Compositor& game, int64_t) { game.play(kGame, 3, 8 * kMs); });
        EXPECT_TRUE(boosts().empty());
        EXPECT_EQ(linesOf({"hgpe.max"}).size(), 0U) << "nobody asks for its limits";
    }
}

TEST(NegativeBoost, PacedFramesMoreThan2msOff_MoveTheTargetDownBy10AndUpBy3AtEveryRate) {
    for (const int64_t period : kPeriods) {
        playGame(Scene().set("vendor.perf.pfar2.hgpe.enable", "1"), period,
                 [&](Compositor& game, int64_t time) {
                     game.startPacing();
                     // Without vsyncs each buffer is held for a period.
                     for (const int64_t late : {2'000'000, 2'000'001, -2'000'000, -2'000'001})
                         time = game.queueAt(time + period + late);
                 });
        EXPECT_EQ(countOf("prev thresh:70, curr thresh:60"), 1) << period;
        EXPECT_EQ(countOf("prev thresh:60, curr thresh:63"), 1) << period;
        if (period != kPeriod60) continue;
        EXPECT_EQ(
                linesOf({"begin headroom = ", "begin reduceThreshold", "begin increaseThreshold"}),
                (std::vector<std::string>{"begin reduceThreshold", "begin headroom = 9333333",
                                          "begin headroom = 8333333", "begin increaseThreshold"}))
                << "late frames move the threshold first, early ones the headroom";
    }
}

TEST(PowerOptimisation, IsSwitchedAndVerifiedOverThreePeriodsEach) {
    Scene withoutMonitor = Scene().frameRegulatorOnly();
    withoutMonitor.schedule.failThreadCreation = 2;
    for (const auto& [what, scene, periods, seen] :
         {std::tuple{"a loss withdraws it; after four it is not tried again until a silence",
                     Scene().frameRegulatorOnly(), "==~~~===~~~===~~~===~~~====z===z",
                     "||E++|||p--|||E++|||p--|||E++|||p--|||E++|||p--|||r|r|||E++--"},
          std::tuple{"misses count across evaluations; an active headroom regulator is enough",
                     Scene(), "========<<<Phhhh", "||E++|||v||||||d--|e|||E++"},
          std::tuple{"the samples before it are consecutive, those behind it not",
                     Scene().frameRegulatorOnly(), "=<====<<<", "|||e|||E++|||p--"},
          std::tuple{"a rate of another class hands the locks back and forgets the samples",
                     Scene().frameRegulatorOnly(), "=/=====/======", "|||||E++|||--|||E++|||v"},
          std::tuple{"and so without a monitor, which hands back what nobody else does",
                     withoutMonitor, "=/=====/===~~~", "|||||E++|||--|||E++|||p--"}}) {
        playGame(scene,
                 [&, what = what, periods = periods, seen = seen](Compositor& game, int64_t) {
                     news();
                     EXPECT_EQ(playPeriods(game, periods), seen) << what;
                 });
    }
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

TEST(PowerOptimisation, PropertiesLevelAndWeight_DecideWhichLocksAreUsed) {
    using Case = std::tuple<const char*, const char*, int, std::vector<std::string>>;
    const std::string pl = "perf_lock_acq(0, 0, {0x41444000, 0}, 2) = 1";
    const std::string coreControl = "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 1";
    const std::string coreControlToo = "perf_lock_acq(0, 0, {0x41000000, 3}, 2) = 2";
    for (const auto& [property, value, weight, locks] :
         {Case{"vendor.perf.pfar2.boost_level", " ", 1, {pl, coreControlToo}},
          Case{"vendor.perf.pfar2.disable_pl", "0", 1, {coreControl}},
          Case{"vendor.perf.pfar2.disable_core_ctl", "0", 1, {pl}},
          Case{"vendor.perf.pfar2.boost_level", "x", 1, {}},
          Case{"vendor.perf.pfar2.boost_level", "1", 0, {pl}}}) {  // no game
        Scene scene = Scene().frameRegulatorOnly().set(property, value);
        scene.weights["com.example.game"] = weight;
        playGame(scene, [](Compositor& game, int64_t) { game.play(kGame, 130); });
        EXPECT_EQ(countOf("enable power opt."), 1);
        EXPECT_EQ(linesOf({"perf_lock_acq"}), locks) << property << value;
    }
}
