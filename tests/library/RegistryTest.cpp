// Which layers are tracked, refused, ignored and given up.

#include <gtest/gtest.h>

#include <thread>

#include "tests/library/Compositor.h"

namespace {

constexpr char kMultiActive[] = "Multi active layers are detected!";
constexpr char kRetired[] = "~BufferLayerTracker";

std::string layerOf(const std::string& package) {
    return "SurfaceView[" + package + "/" + package + ".Main](BLAST)#9";
}

// Another layer of the first game.
std::string sibling(int number) {
    return "SurfaceView[com.example.game/com.example.game.Menu]#" + std::to_string(number);
}

size_t questions() {
    return sightsOf({"perf_get_feedback("}).size();
}

void ask(Compositor& compositor, const std::vector<std::string>& layers) {
    for (const std::string& layer : layers) {
        compositor.queue(layer);
        Compositor::waitUntil(Compositor::now() + kMs);
    }
}

// Two games are tracked, and a third was refused once: it is known to be a game from then on.
void playThree(const std::function<void(Compositor&)>& body) {
    play(Scene(), [&](Compositor& compositor) {
        compositor.start(kGame);
        compositor.queue(kGame);
        ask(compositor, {kOtherGame, kThirdGame});
        body(compositor);
    });
}

}  // namespace

TEST(Registry, LayerThatNamesNoPackage_IsNeverAskedAboutButTakesOneOfFourPlacesOnTheIgnoreList) {
    play(Scene(), [](Compositor& compositor) {
        compositor.start(kNoGame);
        ask(compositor, {"StatusBar#0", "SurfaceView[com.example.game/Main]#4x", "", kNoGame});
        EXPECT_EQ(questions(), 1U);
        ask(compositor, {"SurfaceView[/Main]#1", kNoGame});
        EXPECT_EQ(questions(), 2U) << "four newer ones pushed it out";
        compositor.library.trackBufferIncrement(nullptr);
        compositor.library.trackBufferDecrement(nullptr, 1);
        const std::string longName(1 << 20, 'x');
        ask(compositor, {longName, layerOf(longName)});
        compositor.consume(longName);
        EXPECT_EQ(questions(), 3U) << "a package of any length is asked about";
    });
}

TEST(Registry, OnlyTheGameVerdict_MakesAGameAndItsPackageIsNotAskedAboutAgain) {
    for (const int verdict : {-1, 0, 1, 2, 3}) {
        Scene scene;
        scene.verdicts["com.example.game"] = verdict;
        play(scene, [&](Compositor& compositor) {
            compositor.start(kGame);
            const std::string answer = verdict == 2 ? "isGameLayer:1 [" : "isGameLayer:0 [";
            EXPECT_EQ(countOf(answer + kGame + "][com.example.game]"), 1);
            EXPECT_EQ(linesOf({"begin"}), std::vector<std::string>{"begin game layer checker."});
            EXPECT_EQ(linesOf({"end"}).back(), "end");
            compositor.queue(sibling(2));
            compositor.play(kGame, 70);
            compositor.play(sibling(2), 70);
        });
        EXPECT_EQ(linesOf({"FPS:60.00"}).size(), verdict == 2 ? 2U : 0U) << verdict;
        EXPECT_EQ(questions(), verdict == 2 ? 1U : 2U) << verdict;
    }
}

TEST(Registry, SlowService_HoldsNobodyAndOneQuestionIsUnderWayAtATime) {
    constexpr int64_t kSlow = 5 * kSecond;
    play(Scene(), [](Compositor& compositor) {
        compositor.library.init();
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedback, kSlow);
        const int64_t asked = Compositor::now();
        ask(compositor, {kGame});
        for (int i = 0; i < 10; ++i) compositor.queue(kOtherGame);
        EXPECT_EQ(Compositor::now(), asked + kMs);
        EXPECT_EQ(questions(), 1U);
        Compositor::waitUntil(asked + kSlow + kMs);
        ask(compositor, {kOtherGame});
        EXPECT_EQ(questions(), 2U);
        EXPECT_EQ(sightsOf({"perf_get_feedback("}).back().first, asked + kSlow + kMs);
    });
}

TEST(Registry, ThirdGame_IsRefused200TimesAndIgnoredAtThe201st) {
    playThree([](Compositor& compositor) {
        for (int attempt = 2; attempt <= 200; ++attempt) compositor.queue(kThirdGame);
        EXPECT_EQ(countOf(kMultiActive), 0);
        compositor.queue(kThirdGame);
        EXPECT_EQ(linesOf({"W Cindral: " + std::string(kMultiActive)}).size(), 1U);
        compositor.queue(kThirdGame);
        EXPECT_EQ(countOf(kMultiActive), 1) << "an ignored layer does not ask";
        compositor.queue(sibling(5));
        EXPECT_EQ(countOf(kMultiActive), 2) << "beyond the limit the first attempt is enough";

        Compositor::waitUntil(Compositor::now() + kSecond);
        compositor.queue(sibling(6));  // takes the first game's place
        compositor.queue(kOtherGame);
        compositor.queue(sibling(7));
        EXPECT_EQ(countOf(kMultiActive), 2) << "the refusals are forgotten";
    });
}

TEST(Registry, OldestTracker_IsGivenUpOnceSilentForAWholeSecond) {
    playThree([](Compositor& compositor) {
        const int64_t last = compositor.playUntilEnvironment(kGame);
        Compositor::waitUntil(last + 999'999'999);
        compositor.queue(kThirdGame);
        EXPECT_EQ(countOf(kRetired), 0);
        Compositor::waitUntil(last + 1'000'000'000);
        compositor.queue(kThirdGame);
        EXPECT_EQ(timeOf(kRetired), last + 1'000'000'000);
        compositor.play(kThirdGame, 70);
        EXPECT_EQ(countOf("FPS:60.00[" + kThirdGame + "]"), 1) << "the newcomer is tracked";
    });
}

TEST(Registry, TrackerInTheMiddleOfASlowSetUp_IsGivenUpOnlyAfterwards) {
    playThree([](Compositor& compositor) {
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedbackExtn,
                                                   3 * kSecond);
        int64_t built = 0;
        std::thread producer([&] {
            while (sightsOf({"perf_get_feedback_extn"}).empty()) {
                compositor.queueAt(Compositor::now() + kPeriod60);
            }
            built = Compositor::now();
        });
        Compositor::waitUntil(3 * kSecond);
        ASSERT_EQ(built, 0);
        std::thread display([&] {
            Compositor::waitUntil(3 * kSecond + kMs);
            compositor.library.setVsyncPeriod(18 * kMs);
        });
        compositor.queue(kThirdGame);
        EXPECT_GT(built, 3 * kSecond);
        EXPECT_EQ(Compositor::now(), built);
        EXPECT_EQ(timeOf(kRetired), built);
        producer.join();
        display.join();
        EXPECT_EQ(countOf("unexpected vsync recevied: ld\n"), 3) << "the newcomer learns it twice";
    });
}

TEST(Registry, NewTracker_GetsTheLastVsyncPeriodAndEveryTrackerLaterOnes) {
    play(Scene(), [](Compositor& compositor) {
        const std::string unexpected = "unexpected vsync recevied: ld\n";
        compositor.start(kGame, 123);
        EXPECT_EQ(countOf(unexpected), 1);
        ask(compositor, {kOtherGame});
        EXPECT_EQ(countOf(unexpected), 2);
        compositor.library.setVsyncPeriod(kPeriod60);
        EXPECT_EQ(countOf(unexpected), 2);
        compositor.library.setVsyncPeriod(18 * kMs);
        compositor.library.setVsyncPeriod(18 * kMs);
        EXPECT_EQ(countOf(unexpected), 6) << "it is not stored, so it is logged again";
    });
}
