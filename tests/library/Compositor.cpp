#include "tests/library/Compositor.h"

#include <gtest/gtest.h>

#include <algorithm>

using device::EntryPoint;
using device::Event;
using device::EventKind;
using device::StandInDevice;

namespace {

constexpr int kBoostHintId = 0x1046;

const int64_t kStart = sim::Options().startTimeNs;

void configure(const Scene& scene) {
    StandInDevice& device = StandInDevice::instance();
    device.reset(scene.properties, {"com.example.game", "com.example.other", "com.example.third"});
    device.setThreadLabeller(sim::currentThread);
    device.setTraceTags(StandInDevice::kTraced);
    device.setHalVersion(scene.halVersion);
    for (const auto& [id, value] : scene.knobs) device.setKnob(id, value);
    for (const auto& [package, verdict] : scene.verdicts) device.setVerdict(package, verdict);
    for (const auto& [package, weight] : scene.weights) device.setGameWeight(package, weight);
}

}  // namespace

int64_t Compositor::now() {
    return sim::now() - kStart;
}

void Compositor::waitUntil(int64_t time) {
    sim::sleepUntil(kStart + time);
}

void Compositor::consume(const std::string& layer, int pending, int times) {
    while (times-- > 0) library.trackBufferDecrement(layer.c_str(), pending);
}

int64_t Compositor::queueAt(int64_t time) {
    waitUntil(time);
    queue(kGame);
    return now();
}

int64_t Compositor::vsyncAt(int64_t time) {
    waitUntil(time);
    library.trackVsyncSignal();
    return now();
}

void Compositor::play(const std::string& layer, int frames, int64_t period, int pending) {
    for (int i = 0; i < frames; ++i) {
        const int64_t frameStart = now();
        queue(layer);
        consume(layer, pending);
        waitUntil(frameStart + period);
    }
}

int64_t Compositor::playUntilEnvironment(const std::string& layer, int64_t period) {
    const bool built = device::Game(library, {layer}, period).playUntil([] {
        return !sightsOf({"perf_get_feedback_extn("}).empty();
    });
    EXPECT_TRUE(built) << "the environment of " << layer;
    return now();
}

sim::Outcome play(const Scene& scene, const std::function<void(Compositor&)>& body) {
    configure(scene);
    return sim::run(scene.schedule, [&] {
        const device::ServiceLibraries services(scene.without);
        Compositor compositor;
        body(compositor);
    });
}

sim::Outcome playGame(const Scene& scene, int64_t period, const GameScene& body) {
    return play(scene, [&](Compositor& compositor) {
        compositor.start(kGame, period);
        body(compositor, compositor.playUntilEnvironment(kGame, period));
    });
}

std::vector<Sight> sightsOf(const std::vector<std::string>& parts) {
    std::vector<Sight> found;
    for (const Event& event : StandInDevice::instance().events()) {
        const std::string line = device::describe(event);
        const auto contains = [&](const std::string& part) { return line.find(part) != line.npos; };
        if (std::any_of(parts.begin(), parts.end(), contains))
            found.push_back({event.timeNs - kStart, line});
    }
    return found;
}

std::vector<std::string> linesOf(const std::vector<std::string>& parts) {
    std::vector<std::string> lines;
    for (const auto& [time, line] : sightsOf(parts)) lines.push_back(line);
    return lines;
}

std::vector<Sight> boosts() {
    std::vector<Sight> found;
    for (const Event& event : StandInDevice::instance().events()) {
        if (event.entryPoint != EntryPoint::kPerfHint || event.arguments[0] != kBoostHintId)
            continue;
        const std::vector<int>& arguments = event.arguments;
        found.push_back({event.timeNs - kStart,
                         std::to_string(arguments[1]) + "/" + std::to_string(arguments[2])});
    }
    return found;
}

std::vector<int64_t> timesOf(const std::string& text) {
    std::map<EventKind, std::vector<int64_t>> times;
    for (const Event& event : StandInDevice::instance().events()) {
        if (event.text == text) times[event.kind].push_back(event.timeNs - kStart);
    }
    return times[times.count(EventKind::kLog) != 0 ? EventKind::kLog : EventKind::kTraceBegin];
}

int64_t timeOf(const std::string& text) {
    const std::vector<int64_t> found = timesOf(text);
    EXPECT_EQ(found.size(), 1U) << "\"" << text << "\"";
    return found.empty() ? -1 : found.front();
}

int countOf(const std::string& text) {
    return static_cast<int>(timesOf(text).size());
}
