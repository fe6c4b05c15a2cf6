#include "device/StandInDevice.h"

#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "device/DeviceState.h"

namespace standin {
namespace {

int64_t monotonicNs() {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kNsPerSecond + now.tv_nsec;
}

}  // namespace

void Device::State::record(Event event) {
    event.thread = labeller ? labeller() : gettid();
    event.timeNs = monotonicNs();
    if (sink) return sink(event);
    content.events.push_back(std::move(event));
}

Device::Device() : mState(std::make_unique<State>()) {}
Device::~Device() = default;

// Never destroyed: threads and destructors of static objects may still log while the process exits.
Device& Device::instance() {
    static Device* const device = new Device;
    return *device;
}

// The labeller and the sink stay: they describe the host, not the device.
void Device::reset() {
    const std::lock_guard guard(mState->lock);
    mState->content = {};
    mState->traceTags.store(0, std::memory_order_relaxed);
}

void Device::setProperty(const std::string& name, const std::string& value) {
    const std::lock_guard guard(mState->lock);
    mState->content.properties[name] = value;
}

void Device::setKnob(int id, int value) {
    const std::lock_guard guard(mState->lock);
    mState->content.knobs[id] = value;
}

void Device::setVerdict(const std::string& package, int verdict) {
    const std::lock_guard guard(mState->lock);
    mState->content.verdicts[package] = verdict;
}

void Device::setGameWeight(const std::string& package, int weight) {
    const std::lock_guard guard(mState->lock);
    mState->content.gameWeights[package] = weight;
}

void Device::setHalVersion(double version) {
    const std::lock_guard guard(mState->lock);
    mState->content.halVersion = version;
}

void Device::setDelay(EntryPoint entryPoint, int64_t delayNs) {
    const std::lock_guard guard(mState->lock);
    mState->content.delayNs.at(static_cast<size_t>(entryPoint)) = delayNs;
}

void Device::setTraceTags(uint64_t tags) {
    mState->traceTags.store(tags, std::memory_order_relaxed);
}

void Device::setThreadLabeller(std::function<int()> labeller) {
    const std::lock_guard guard(mState->lock);
    mState->labeller = std::move(labeller);
}

void Device::setEventSink(std::function<void(const Event&)> sink) {
    const std::lock_guard guard(mState->lock);
    mState->sink = std::move(sink);
}

std::vector<Event> Device::events(size_t without) const {
    const std::lock_guard guard(mState->lock);
    const std::vector<Event>& events = mState->content.events;
    return {events.begin() + static_cast<std::ptrdiff_t>(std::min(without, events.size())),
            events.end()};
}

void Device::clearEvents() {
    const std::lock_guard guard(mState->lock);
    mState->content.events.clear();
}

}  // namespace standin
