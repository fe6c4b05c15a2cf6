#include "device/Backend.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "device/DeviceState.h"

namespace device {
namespace {

constexpr int kFeedbackRequest = 5633;
constexpr int kNotAGame = 0;
constexpr int kNoWeight = -1;
constexpr int kReleased = 0;
constexpr int kNotHeld = -1;
constexpr int64_t kNsPerSecond = 1'000'000'000;

std::string orNull(const char* text) {
    return text ? text : "(null)";
}

std::string toText(int value) {
    return std::to_string(value);
}
std::string toText(const std::string& value) {
    return value;
}
std::string toText(double value) {
    char text[32];
    snprintf(text, sizeof(text), "%g", value);
    return text;
}

template <typename Map>
typename Map::mapped_type valueOr(const Map& map, const typename Map::key_type& key,
                                  typename Map::mapped_type otherwise) {
    const auto found = map.find(key);
    return found == map.end() ? std::move(otherwise) : found->second;
}

std::vector<int> listOf(const int* values, int count) {
    if (!values || count <= 0) return {};
    return {values, values + count};
}

void sleepFor(int64_t durationNs) {
    if (durationNs <= 0) return;
    timespec left{durationNs / kNsPerSecond, durationNs % kNsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

Event serviceCall(EntryPoint entryPoint, std::vector<int> arguments = {}, std::string text = {}) {
    Event event;
    event.kind = EventKind::kServiceCall;
    event.entryPoint = entryPoint;
    event.arguments = std::move(arguments);
    event.text = std::move(text);
    return event;
}

}  // namespace

StandInDevice::State& Backend::state() {
    return *StandInDevice::instance().mState;
}

void Backend::record(Event&& event) {
    const std::lock_guard guard(state().lock);
    state().record(std::move(event));
}

// `answer` runs under the device's lock; the delay is slept without it, as calls of a real service
// overlap.
template <typename Answer>
auto Backend::serve(Event event, Answer answer) {
    StandInDevice::State& device = state();
    std::unique_lock guard(device.lock);
    const int64_t delayNs = device.content.delayNs[static_cast<size_t>(event.entryPoint)];
    auto value = answer(device);
    event.result = toText(value);
    event.takesNs = delayNs;
    device.record(std::move(event));
    guard.unlock();
    sleepFor(delayNs);
    return value;
}

int Backend::weightOf(const StandInDevice::State& device, const std::string& package) {
    return valueOr(device.content.gameWeights, package, kNoWeight);
}

int Backend::newHandle(StandInDevice::State& device) {
    const int handle = device.content.nextHandle++;
    device.content.heldHandles.insert(handle);
    return handle;
}

int Backend::isFeatureEnabled(int id) {
    return serve(serviceCall(EntryPoint::kIsFeatureEnabled, {id}),
                 [id](const StandInDevice::State& device) {
                     return valueOr(device.content.knobs, id, 0);
                 });
}

void Backend::getProp(const char* property, const char* defaultValue, char* value, size_t size) {
    const std::string name = orNull(property);
    Event event = serviceCall(EntryPoint::kPerfGetProp, {}, name);
    event.defaultValue = orNull(defaultValue);
    const std::string answer = serve(std::move(event), [&](const StandInDevice::State& device) {
        return valueOr(device.content.properties, name, defaultValue ? defaultValue : "")
                .substr(0, size);
    });
    // A value that fills the field is left without an end, which a client must not take for granted.
    std::memcpy(value, answer.c_str(), std::min(answer.size() + 1, size));
}

int Backend::getFeedback(int request, const char* package) {
    const std::string name = orNull(package);
    return serve(serviceCall(EntryPoint::kPerfGetFeedback, {request}, name),
                 [&](const StandInDevice::State& device) {
                     if (request != kFeedbackRequest) return kNotAGame;
                     return valueOr(device.content.verdicts, name, kNotAGame);
                 });
}

int Backend::getFeedbackExtn(int request, const char* package, int count, const int* values) {
    const std::vector<int> kWeightQuery{1, 0};
    const std::string name = orNull(package);
    const std::vector<int> list = listOf(values, count);
    std::vector<int> arguments{request, count};
    arguments.insert(arguments.end(), list.begin(), list.end());
    return serve(serviceCall(EntryPoint::kPerfGetFeedbackExtn, std::move(arguments), name),
                 [&](const StandInDevice::State& device) {
                     if (request != kFeedbackRequest || list != kWeightQuery) return kNoWeight;
                     return weightOf(device, name);
                 });
}

int Backend::hint(int hintId, const char* package, int duration, int type) {
    // Devices without perf_get_feedback_extn are asked for the weight by a hint.
    const bool isWeightQuery = hintId == kFeedbackRequest && duration == 0 && type == 1;
    const std::string name = orNull(package);
    return serve(serviceCall(EntryPoint::kPerfHint, {hintId, duration, type}, name),
                 [&](StandInDevice::State& device) {
                     return isWeightQuery ? weightOf(device, name) : newHandle(device);
                 });
}

int Backend::lockAcquire(int handle, int duration, const int* list, int count) {
    std::vector<int> arguments{handle, duration};
    const std::vector<int> flattened = listOf(list, count);
    arguments.insert(arguments.end(), flattened.begin(), flattened.end());
    arguments.push_back(count);
    return serve(serviceCall(EntryPoint::kPerfLockAcq, std::move(arguments)), newHandle);
}

int Backend::lockRelease(int handle) {
    return serve(serviceCall(EntryPoint::kPerfLockRel, {handle}),
                 [handle](StandInDevice::State& device) {
                     return device.content.heldHandles.erase(handle) == 1 ? kReleased : kNotHeld;
                 });
}

double Backend::halVersion() {
    return serve(serviceCall(EntryPoint::kGetPerfHalVer),
                 [](const StandInDevice::State& device) { return device.content.halVersion; });
}

void Backend::log(int priority, const char* tag, std::string text) {
    Event event;
    event.kind = EventKind::kLog;
    event.priority = priority;
    event.tag = orNull(tag);
    event.text = std::move(text);
    record(std::move(event));
}

void Backend::traceBegin(const char* name) {
    Event event;
    event.kind = EventKind::kTraceBegin;
    event.text = orNull(name);
    record(std::move(event));
}

void Backend::traceEnd() {
    Event event;
    event.kind = EventKind::kTraceEnd;
    record(std::move(event));
}

uint64_t Backend::traceTags() {
    return state().traceTags.load(std::memory_order_relaxed);
}

}  // namespace device
