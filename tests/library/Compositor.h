#pragma once

// A compositor for tests: plays scenes to the shipped library in virtual time, on the stand-in
// device.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "device/Game.h"
#include "device/StandInDevice.h"
#include "sim/Simulation.h"

inline constexpr int64_t kMs = 1'000'000;
inline constexpr int64_t kSecond = 1'000'000'000;

inline constexpr int64_t kPeriod60 = 16'666'667;
inline constexpr int64_t kPeriod75 = 13'333'333;
inline constexpr int64_t kPeriod90 = 11'111'111;
// One of every display class.
inline constexpr int64_t kPeriods[] = {kPeriod60, kPeriod75, kPeriod90, 8'333'333, 6'944'444};

inline const std::string kGame = "SurfaceView[com.example.game/com.example.game.Main](BLAST)#1";
inline const std::string kOtherGame =
        "SurfaceView[com.example.other/com.example.other.Main](BLAST)#2";
inline const std::string kThirdGame =
        "SurfaceView[com.example.third/com.example.third.Main](BLAST)#3";
inline const std::string kNoGame = "SurfaceView[com.example.video/com.example.video.Main](BLAST)#4";

// The device and the schedule of a scene. The default device has both regulators and the debug
// switch on, and knows the three games above.
struct Scene {
    std::map<std::string, std::string> properties = {{"vendor.perf.pfar2.enable", "1"},
                                                     {"vendor.perf.phr.enable", "1"},
                                                     {"vendor.perf.cindral.debug", "1"}};
    // What differs from a device that offers everything to the three games.
    std::map<int, int> knobs;
    std::map<std::string, int> verdicts;  // package -> answer of the service
    std::map<std::string, int> weights;
    double halVersion = 2.3;
    std::vector<std::string> without;  // missing libraries or entry points
    sim::Options schedule;

    Scene& set(const std::string& property, const std::string& value) {
        properties[property] = value;
        return *this;
    }
    Scene& headroomOnly() { return set("vendor.perf.pfar2.enable", "0"); }
    Scene& frameRegulatorOnly() { return set("vendor.perf.phr.enable", "0"); }
};

// When something was seen from outside, in ns since the start of the scene, and what.
using Sight = std::pair<int64_t, std::string>;

// The library, loaded, inside a running scene. Times are ns since the start of the scene.
class Compositor {
  public:
    device::CindralLibrary library;

    static int64_t now();
    static void waitUntil(int64_t time);

    void queue(const std::string& layer) { library.trackBufferIncrement(layer.c_str()); }
    void consume(const std::string& layer, int pending = 0, int times = 1);
    // Initialises, sets the period and lets the layer be classified.
    void start(const std::string& layer, int64_t period = kPeriod60) {
        EXPECT_TRUE(device::Game(library, {layer}, period).start());
    }
    // Queues and consumes `frames` buffers, the first one now and the last one period before the
    // end.
    void play(const std::string& layer, int frames, int64_t period = kPeriod60, int pending = 0);
    // Plays until the layer's environment exists. Returns the time of the last queued buffer, right
    // now.
    int64_t playUntilEnvironment(const std::string& layer, int64_t period = kPeriod60);

    // A buffer of the first game, and a vsync, at `time`. Return when the thread came back.
    int64_t queueAt(int64_t time);
    int64_t vsyncAt(int64_t time);
    // Lets buffers of the first game accumulate until its headroom regulator goes on; none is pending
    // in the end.
    void startPacing() { device::Game(library, {kGame}, kPeriod60).startPacing(); }
};

// Plays a scene. The library is loaded before the body and unloaded after it, in virtual time. A
// run that fails prints its report and aborts.
sim::Outcome play(const Scene& scene, const std::function<void(Compositor&)>& body);
// The same once the first game has its environment. `last` is when its last buffer was queued: now.
using GameScene = std::function<void(Compositor&, int64_t last)>;
sim::Outcome playGame(const Scene& scene, int64_t period, const GameScene& body);
inline sim::Outcome playGame(const Scene& scene, const GameScene& body) {
    return playGame(scene, kPeriod60, body);
}

// What has been seen since the start of the scene and has one of the parts in its line, in order. A line
// is a service call with its answer, "priority tag: text", "begin section" or "end".
std::vector<Sight> sightsOf(const std::vector<std::string>& parts);
std::vector<std::string> linesOf(const std::vector<std::string>& parts);
std::vector<Sight> boosts();  // boosts and releases through perf_hint, as "duration/type"
// When log lines with this text were written or, without one, markers: some come with a line of the same
// text. timeOf fails the test if there is not exactly one.
std::vector<int64_t> timesOf(const std::string& text);
int64_t timeOf(const std::string& text);
int countOf(const std::string& text);
