#include "device/StandInDevice.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "device/DeviceState.h"

namespace device {
namespace {

int64_t monotonicNs() {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

}  // namespace

void StandInDevice::State::record(Event&& event) {
    event.thread = labeller ? labeller() : gettid();
    event.timeNs = monotonicNs();
    if (sink) return sink(event);
    content.events.push_back(std::move(event));
}

StandInDevice::StandInDevice() : mState(std::make_unique<State>()) {}
StandInDevice::~StandInDevice() = default;

// Never destroyed: threads and destructors of static objects may still log while the process exits.
StandInDevice& StandInDevice::instance() {
    static StandInDevice* const device = new StandInDevice;
    return *device;
}

// The labeller and the sink stay: they describe the host, not the device.
void StandInDevice::reset() {
    const std::lock_guard guard(mState->lock);
    mState->content = {};
    mState->traceTags.store(0, std::memory_order_relaxed);
}

void StandInDevice::reset(const std::map<std::string, std::string>& properties,
                          const std::vector<std::string>& games) {
    constexpr int kFeatureKnobs[] = {5, 6, 7};
    constexpr int kIsGame = 2;
    constexpr int kFullWeight = 1;
    reset();
    for (const auto& [name, value] : properties) setProperty(name, value);
    for (const int knob : kFeatureKnobs) setKnob(knob, 1);
    for (const std::string& package : games) {
        setVerdict(package, kIsGame);
        setGameWeight(package, kFullWeight);
    }
}

void StandInDevice::setProperty(const std::string& name, const std::string& value) {
    const std::lock_guard guard(mState->lock);
    mState->content.properties[name] = value;
}

void StandInDevice::setKnob(int id, int value) {
    const std::lock_guard guard(mState->lock);
    mState->content.knobs[id] = value;
}

void StandInDevice::setVerdict(const std::string& package, int verdict) {
    const std::lock_guard guard(mState->lock);
    mState->content.verdicts[package] = verdict;
}

void StandInDevice::setGameWeight(const std::string& package, int weight) {
    const std::lock_guard guard(mState->lock);
    mState->content.gameWeights[package] = weight;
}

void StandInDevice::setHalVersion(double version) {
    const std::lock_guard guard(mState->lock);
    mState->content.halVersion = version;
}

void StandInDevice::setDelay(EntryPoint entryPoint, int64_t delayNs) {
    const std::lock_guard guard(mState->lock);
    mState->content.delayNs.at(static_cast<size_t>(entryPoint)) = delayNs;
}

void StandInDevice::setTraceTags(uint64_t tags) {
    mState->traceTags.store(tags, std::memory_order_relaxed);
}

void StandInDevice::setThreadLabeller(std::function<int()> labeller) {
    const std::lock_guard guard(mState->lock);
    mState->labeller = std::move(labeller);
}

void StandInDevice::setEventSink(std::function<void(const Event&)> sink) {
    const std::lock_guard guard(mState->lock);
    mState->sink = std::move(sink);
}

std::vector<Event> StandInDevice::events(size_t without) const {
    const std::lock_guard guard(mState->lock);
    const std::vector<Event>& events = mState->content.events;
    return {events.begin() + static_cast<std::ptrdiff_t>(std::min(without, events.size())),
            events.end()};
}

void StandInDevice::clearEvents() {
    const std::lock_guard guard(mState->lock);
    mState->content.events.clear();
}

}  // namespace device
