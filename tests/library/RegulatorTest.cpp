// The headroom regulator by itself: how its flags hand a release from one thread to the other.

#include <gtest/gtest.h>

#include <thread>

#include "headroom/PresetHeadroomRegulator.h"
#include "tests/library/Component.h"
#include "tracker/BufferLayerTracker.h"

using android::BufferLayerTracker;
using android::PresetHeadroomRegulator;

namespace {

constexpr int64_t kPeriod = 16'666'667;
constexpr int64_t kMinHeadroom = 8'333'333;
constexpr int64_t kTimer = kPeriod - kMinHeadroom;

// Does to a regulator what the letters of a script say, and notes how long each buffer was held.
class Script {
  public:
    explicit Script(PresetHeadroomRegulator& regulator) : mRegulator(regulator) {}

    std::vector<int64_t> run(const std::string& letters) {
        for (const char letter : letters) step(letter);
        for (std::thread& thread : mThreads) thread.join();
        return mHeld;
    }

  private:
    void step(char letter) {
        switch (letter) {
            case 'V':  // a vsync now
                return mRegulator.onVsync(mVsync = sim::now());
            case 'F':  // one whose time lies 5 ms behind its release
                return mRegulator.onVsync(sim::now() + kTimer + 5 * kMs);
            case 'c':  // the release is over
                return sim::sleepFor(kPeriod);
            case 'r':  // half a millisecond before the release
                return sim::sleepUntil(mVsync + kTimer - kMs / 2);
            case 'Q':
                return queue();
            case 'P':
                return mRegulator.updateAccumulationStatus(true);
            case 'N':
                return mRegulator.updateAccumulationStatus(false);
            case '-':
            case '+':
                return mRegulator.setActiveStatus(letter == '+');
            case '^':
                return mRegulator.increasePresetHeadroom();
            case '=':
                return mRegulator.setVsyncInfo(kPeriod, 90);
            case '~':
                return mRegulator.setVsyncInfo(kPeriod - 1, 60);
            case 'x':
                mRegulator.forceStop();
                return sim::sleepFor(kMs);
            case 'v':
                return later(10 * kMs, [this] { mRegulator.onVsync(sim::now()); });
            case 's':
                return later(3 * kMs, [this] { mRegulator.forceStop(); });
            default:
                FAIL() << letter;
        }
    }

    void queue() {
        const int64_t queued = sim::now();
        mRegulator.trackQueueBuffer();
        mHeld.push_back(sim::now() - queued);
    }

    template <typename Act>
    void later(int64_t duration, Act act) {
        mThreads.emplace_back([=] {
            sim::sleepFor(duration);
            act();
        });
    }

    PresetHeadroomRegulator& mRegulator;
    int64_t mVsync = 0;
    std::vector<int64_t> mHeld;
    std::vector<std::thread> mThreads;
};

}  // namespace

TEST(Regulator, Buffers_AreHeldAsLongAsTheirReleaseTakes) {
    struct Case {
        const char* what;
        const char* script;
        std::vector<int64_t> held;
    };
    const Case cases[] = {
            {"a release is spent on a wait that ran out, the next is kept", "QVcVcQ", {kPeriod, 0}},
            {"a wait that a release ended leaves the next release alone", "VQVcQ", {kTimer, 0}},
            {"inactive: holds nobody, ignores vsyncs, keeps its release",
             "Vc-QV+QQ",
             {0, 0, kPeriod}},
            {"the same period changes nothing, another sets the headroom back",
             "^=VQ~VQ",
             {kTimer - kMs, kTimer - 1}},
            {"pending buffers are waited for until the clock is beyond the vsync",
             "PFQ",
             {kTimer + 6 * kMs}},
            {"a release in the check for pending ones ends its pass, which counts, and is used up",
             "VcPVrQQ",
             {kMs / 2 + kMs, kPeriod + 2 * kMs}},
            {"an accumulation delay ends with the next release, which is used up",
             "PVPvQNQ",
             {10 * kMs + kTimer, kPeriod}},
            {"an accumulation delay that runs out costs no release",
             "PVPQNVcQ",
             {kTimer + kPeriod, 0}},
            {"a stop lets a held buffer go at once and holds no other", "sQQ", {3 * kMs, 0}},
            {"switched on after its end, nobody releases and nothing pends", "Px+VQ", {kPeriod}},
    };
    for (const Case& c : cases) {
        withClient({}, [&](PerfProxy& client) {
            sp<PerfProxy> owner = &client;
            const sp<PresetHeadroomRegulator> regulator =
                    new PresetHeadroomRegulator(owner, false, true);
            regulator->setVsyncInfo(kPeriod, 60);
            regulator->setActiveStatus(true);
            sim::sleepFor(kMs);
            EXPECT_EQ(Script(*regulator).run(c.script), c.held) << c.what;
            regulator->forceStop();
        });
        EXPECT_EQ(seen().back(), "D Cindral.HeadroomRegulator: ~PresetHeadroomRegulator");
    }
}

TEST(Regulator, SwitchedOnTwice_SaysItOnceAndHasLeftTheVsyncBeforeAlone) {
    withClient({}, [](PerfProxy& client) {
        sp<PerfProxy> owner = &client;
        const sp<PresetHeadroomRegulator> regulator =
                new PresetHeadroomRegulator(owner, false, true);
        regulator->setVsyncInfo(kPeriod, 60);
        sim::sleepFor(kMs);
        StandInDevice::instance().clearEvents();
        EXPECT_EQ(Script(*regulator).run("Vc++"), std::vector<int64_t>());
        const std::vector<std::string> expected = {
                "begin enable PHR", "D Cindral.HeadroomRegulator: enable PHR", "end"};
        EXPECT_EQ(seen(), expected);
        regulator->forceStop();
    });
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
