// What cindralInit decides, and from what.

#include <gtest/gtest.h>

#include <cctype>
#include <sstream>

#include "tests/library/Compositor.h"

namespace {

// "5=1;phr=1": knob 5 and the property that enables the headroom regulator.
Scene sceneOf(const std::string& settings) {
    Scene scene;
    scene.knobs = {{5, 0}, {6, 0}, {7, 0}};
    scene.properties.clear();
    std::istringstream items(settings);
    for (std::string item; std::getline(items, item, ';');) {
        const std::string name = item.substr(0, item.find('='));
        const std::string value = item.substr(item.find('=') + 1);
        if (std::isdigit(name[0]))
            scene.knobs[std::stoi(name)] = std::stoi(value);
        else
            scene.set(name == "zgpe" ? "ro.vendor.perf.zgpe" : "vendor.perf." + name + ".enable",
                      value);
    }
    return scene;
}

}  // namespace

TEST(Init, KnobsAndProperties_DecideTheFeatures) {
    using Decision = std::tuple<const char*, const char*, std::string, size_t>;
    for (const auto& [what, settings, line, propertiesRead] :
         {Decision{"everything off", "", "[GFAR:0][PHR:0]", 2},
          {"second generation alone", "7=1;pfar2=1", "[GFAR:1][PHR:0]", 2},
          {"first generation asks no further", "5=1;7=1;pfar=1;pfar2=1", "[GFAR:1][PHR:0]", 4},
          {"the headroom knob is not the other's", "6=1;pfar=1;phr=1", "[GFAR:0][PHR:1]", 5},
          {"the frame-regulator knob neither", "5=1;phr=1", "[GFAR:0][PHR:0]", 5},
          {"a property needs its knob", "pfar2=1", "[GFAR:0][PHR:0]", 2},
          {"zgpe takes back the frame regulator, not headroom", "5=1;6=1;pfar=1;phr=1;zgpe=false",
           "[GFAR:0][PHR:1]", 4},
          {"zgpe must be the exact text", "5=1;pfar=1;zgpe=True", "[GFAR:0][PHR:0]", 4},
          {"only the number 1 is on", "5=1;6=1;7=1;pfar=2;phr=on;pfar2=-1", "[GFAR:0][PHR:0]", 5},
          {"a knob is on whatever its number", "5=2;6=-1;pfar=1;phr=1", "[GFAR:1][PHR:1]", 4},
          {"a hexadecimal 1 is not a 1", "6=1;phr=0x1", "[GFAR:0][PHR:0]", 5},
          {"blanks, zeros and what follows do not matter", "6=1;phr= 001x", "[GFAR:0][PHR:1]",
           5}}) {
        SCOPED_TRACE(what);
        const bool active = line != "[GFAR:0][PHR:0]";
        play(sceneOf(settings), [&](Compositor& compositor) {
            EXPECT_EQ(compositor.library.init(), active);
            EXPECT_EQ(compositor.library.init(), active) << "and the same again";
        });
        EXPECT_EQ(linesOf({"Cindral"}), std::vector<std::string>{"E Cindral: " + line});
        EXPECT_EQ(linesOf({"perf_get_prop"}).size(), propertiesRead);
    }
}

TEST(Init, DecidedAnew_NothingOfTheFormerDecisionRemains) {
    play(Scene(), [](Compositor& compositor) {
        device::StandInDevice& device = device::StandInDevice::instance();
        ASSERT_TRUE(compositor.library.init());
        for (const int knob : {5, 6, 7}) device.setKnob(knob, 0);
        compositor.library.clearConfigs();
        EXPECT_FALSE(compositor.library.init());
        EXPECT_EQ(countOf("[GFAR:0][PHR:0]"), 1);
        device.setKnob(7, 1);
        compositor.library.clearConfigs();
        EXPECT_TRUE(compositor.library.init());
        EXPECT_EQ(countOf("[GFAR:1][PHR:0]"), 1);
        compositor.start(kGame);
        EXPECT_TRUE(linesOf({"begin"}).empty())
                << "without knob 5 or 6 the debug switch is not read";
        device.setKnob(6, 1);
        compositor.library.clearConfigs();
        compositor.start(kNoGame);
        EXPECT_EQ(countOf("isGameLayer:0 [" + kNoGame + "][com.example.video]"), 1)
                << "the new client answers";
    });
}

// Closing the service's libraries takes the loader's lock, which the unload holds while it waits for
// the checker. A checker that closed them would hang the process, and this test with it.
TEST(Init, DecidedAnewWhileTheFormerClientIsAsked_TheUnloadClosesItsLibraries) {
    play(Scene(), [&](Compositor& compositor) {
        device::StandInDevice::instance().setDelay(device::EntryPoint::kPerfGetFeedback, kSecond);
        compositor.library.init();
        compositor.queue(kGame);
        Compositor::waitUntil(kMs);
        compositor.library.clearConfigs();
        EXPECT_TRUE(compositor.library.init());
    });
    EXPECT_EQ(timeOf("isGameLayer:1 [" + kGame + "][com.example.game]"), kSecond);
}

TEST(Init, AfterClearConfigs_LayersAreServedUntilTheNextInitSwitchesEverythingOff) {
    playGame(Scene().headroomOnly(), [](Compositor& compositor, int64_t) {
        device::StandInDevice& device = device::StandInDevice::instance();
        compositor.consume(kGame, 1, 31);
        compositor.library.clearConfigs();
        compositor.queue(kNoGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        EXPECT_EQ(linesOf({"perf_get_feedback("}).size(), 2U);

        device.setProperty("vendor.perf.phr.enable", "0");
        ASSERT_FALSE(compositor.library.init());
        const size_t seen = device.events().size();
        compositor.library.setVsyncPeriod(123);
        for (int i = 0; i < 8; ++i) {
            compositor.queue(kGame);
            compositor.queue(kOtherGame);
            compositor.library.trackVsyncSignal();
            compositor.consume(kGame, 0);
            Compositor::waitUntil(Compositor::now() + 100 * kMs);
        }
        EXPECT_EQ(device.events().size(), seen);

        device.setProperty("vendor.perf.phr.enable", "1");
        compositor.library.clearConfigs();
        ASSERT_TRUE(compositor.library.init());
        compositor.queue(kOtherGame);
        Compositor::waitUntil(Compositor::now() + kMs);
        EXPECT_EQ(countOf("unexpected vsync recevied: ld\n"), 0) << "no period was stored";
    });
}
