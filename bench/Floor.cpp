#include "bench/Floor.h"

#include <pthread.h>
#include <utils/Timers.h>

#include <array>
#include <cstring>
#include <utility>

// Not within bench::floor, where callgrind takes every function for a floor.
namespace {

using bench::floor::Sequence;

pthread_mutex_t gLayer = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gWork = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gState = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gPower = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gVsync = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t gStateCond = PTHREAD_COND_INITIALIZER;
pthread_cond_t gVsyncCond = PTHREAD_COND_INITIALIZER;
std::string gLayerName;
volatile nsecs_t gClock;  // where the time read goes
volatile bool gFound;     // and the result of a comparison

void readClock() {
    gClock = systemTime(SYSTEM_TIME_MONOTONIC);
}

void signalUnder(pthread_mutex_t& mutex, pthread_cond_t& condition) {
    pthread_mutex_lock(&mutex);
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&mutex);
}

bool isLayer(const char* name) {
    const size_t length = std::strlen(name);
    return length == gLayerName.size() && std::memcmp(name, gLayerName.data(), length) == 0;
}

template <Sequence kSequence>
void increment() {
    constexpr bool kWatched = kSequence != Sequence::kMeasure;
    pthread_mutex_lock(&gWork);
    pthread_mutex_unlock(&gLayer);
    readClock();
    if (kWatched) signalUnder(gState, gStateCond);
    if (kSequence == Sequence::kWatchAndPower) {
        pthread_mutex_lock(&gPower);
        pthread_mutex_unlock(&gPower);
    }
    if (kWatched) signalUnder(gState, gStateCond);
    readClock();
    pthread_mutex_unlock(&gWork);
}

constexpr bool isIncrement(Sequence sequence) {
    return sequence == Sequence::kMeasure || sequence == Sequence::kWatch ||
           sequence == Sequence::kWatchAndPower;
}

}  // namespace

namespace bench::floor {

template <Sequence kSequence, bool kNamed>
void call(const char* layer) {
    if constexpr (kSequence == Sequence::kNothing) return;
    if (kSequence == Sequence::kVsync || kSequence == Sequence::kVsyncActive) readClock();
    pthread_mutex_lock(&gLayer);
    if (kNamed) gFound = isLayer(layer);
    if constexpr (isIncrement(kSequence)) return increment<kSequence>();
    if (kSequence == Sequence::kDecrement) readClock();
    if (kSequence == Sequence::kVsyncActive) signalUnder(gVsync, gVsyncCond);
    pthread_mutex_unlock(&gLayer);
}

namespace {

constexpr size_t kSequences = static_cast<size_t>(Sequence::kVsyncActive) + 1;

template <bool kNamed, size_t... kIndex>
constexpr std::array<Floor, kSequences> floors(std::index_sequence<kIndex...>) {
    return {call<static_cast<Sequence>(kIndex), kNamed>...};
}

}  // namespace

Floor floorOf(Sequence sequence, bool named) {
    using Indices = std::make_index_sequence<kSequences>;
    const auto index = static_cast<size_t>(sequence);
    return named ? floors<true>(Indices())[index] : floors<false>(Indices())[index];
}

void setLayer(const std::string& layer) {
    gLayerName = layer;
}

}  // namespace bench::floor
