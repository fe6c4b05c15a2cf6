#include "bench/Floor.h"

#include <pthread.h>
#include <utils/Timers.h>

#include <cstring>
#include <regex>
#include <thread>

#include "perf/LayerName.h"
#include "platform/Thread.h"

// Not within bench::floor, where callgrind takes every function for a floor.
namespace {

struct MonotonicCond {
    pthread_cond_t cond;
    MonotonicCond() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&cond, &attributes);
        pthread_condattr_destroy(&attributes);
    }
};

pthread_mutex_t gLayer = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gWork[] = {PTHREAD_MUTEX_INITIALIZER,
                           PTHREAD_MUTEX_INITIALIZER};  // of two trackers
pthread_mutex_t gState = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gPower = PTHREAD_MUTEX_INITIALIZER;
pthread_mutex_t gVsync = PTHREAD_MUTEX_INITIALIZER;
MonotonicCond gStateCond;
MonotonicCond gVsyncCond;
std::string gLayerName;
volatile nsecs_t gClock;  // where the time read goes
volatile bool gFound;     // and the result of a comparison

void readClock() {
    gClock = systemTime(SYSTEM_TIME_MONOTONIC);
}

void signalUnder(pthread_mutex_t& mutex, MonotonicCond& condition) {
    pthread_mutex_lock(&mutex);
    pthread_cond_signal(&condition.cond);
    pthread_mutex_unlock(&mutex);
}

bool isLayer(const char* name) {
    const size_t length = std::strlen(name);
    return length == gLayerName.size() && std::memcmp(name, gLayerName.data(), length) == 0;
}

enum class Work { kMeasure, kWatch, kWatchAndPower };

template <bool kNamed, Work kWork, int kTracker = 0>
void incrementSequence(const char* layer) {
    pthread_mutex_lock(&gLayer);
    if (kNamed) gFound = isLayer(layer);
    pthread_mutex_lock(&gWork[kTracker]);
    pthread_mutex_unlock(&gLayer);
    readClock();
    if (kWork != Work::kMeasure) signalUnder(gState, gStateCond);
    if (kWork == Work::kWatchAndPower) {
        pthread_mutex_lock(&gPower);
        pthread_mutex_unlock(&gPower);
    }
    if (kWork != Work::kMeasure) signalUnder(gState, gStateCond);
    readClock();
    pthread_mutex_unlock(&gWork[kTracker]);
}

}  // namespace

namespace bench::floor {

void setLayer(const std::string& layer) {
    gLayerName = layer;
}

void nothing(const char*) {}

void layerLock(const char*) {
    pthread_mutex_lock(&gLayer);
    pthread_mutex_unlock(&gLayer);
}

void layerLockNamed(const char* layer) {
    pthread_mutex_lock(&gLayer);
    gFound = isLayer(layer);
    pthread_mutex_unlock(&gLayer);
}

void increment(const char* layer) {
    incrementSequence<false, Work::kMeasure>(layer);
}
void incrementNamed(const char* layer) {
    incrementSequence<true, Work::kMeasure>(layer);
}
void incrementOfRival(const char* layer) {
    incrementSequence<true, Work::kMeasure, 1>(layer);
}
void incrementWatched(const char* layer) {
    incrementSequence<false, Work::kWatch>(layer);
}
void incrementWatchedNamed(const char* layer) {
    incrementSequence<true, Work::kWatch>(layer);
}
void incrementPowered(const char* layer) {
    incrementSequence<false, Work::kWatchAndPower>(layer);
}
void incrementPoweredNamed(const char* layer) {
    incrementSequence<true, Work::kWatchAndPower>(layer);
}

void classify(const char* layer) {
    pthread_mutex_lock(&gLayer);
    const std::regex pattern(android::cindral::kLayerNamePattern);
    std::cmatch match;
    gFound = std::regex_match(layer, match, pattern);
    pthread_mutex_unlock(&gLayer);
}

void decrement(const char*) {
    pthread_mutex_lock(&gLayer);
    readClock();
    pthread_mutex_unlock(&gLayer);
}

void decrementNamed(const char* layer) {
    pthread_mutex_lock(&gLayer);
    gFound = isLayer(layer);
    readClock();
    pthread_mutex_unlock(&gLayer);
}

void vsync(const char*) {
    readClock();
    pthread_mutex_lock(&gLayer);
    pthread_mutex_unlock(&gLayer);
}

void vsyncActive(const char*) {
    readClock();
    pthread_mutex_lock(&gLayer);
    signalUnder(gVsync, gVsyncCond);
    pthread_mutex_unlock(&gLayer);
}

struct Waiter::Thread {
    pthread_mutex_t& mutex;
    pthread_cond_t& cond;
    const long periodNs;  // 0: no deadline
    bool stop = false;    // guarded by mutex
    std::thread thread{};

    void run() {
        android::cindral::enterRealtimeScheduling();
        pthread_mutex_lock(&mutex);
        while (!stop) wait();
        pthread_mutex_unlock(&mutex);
    }
    void wait() {
        if (periodNs == 0) {
            pthread_cond_wait(&cond, &mutex);
            return;
        }
        constexpr long kNsPerSecond = 1'000'000'000;
        timespec deadline{};
        clock_gettime(CLOCK_MONOTONIC, &deadline);
        const long ns = deadline.tv_nsec + periodNs;
        deadline.tv_sec += ns / kNsPerSecond;
        deadline.tv_nsec = ns % kNsPerSecond;
        pthread_cond_timedwait(&cond, &mutex, &deadline);
    }
};

Waiter::Waiter(On on, long periodNs)
      : mThread(on == On::kState ? new Thread{gState, gStateCond.cond, periodNs}
                                 : new Thread{gVsync, gVsyncCond.cond, 0}) {
    mThread->thread = std::thread([thread = mThread] { thread->run(); });
}

Waiter::~Waiter() {
    pthread_mutex_lock(&mThread->mutex);
    mThread->stop = true;
    pthread_cond_signal(&mThread->cond);
    pthread_mutex_unlock(&mThread->mutex);
    mThread->thread.join();
    delete mThread;
}

}  // namespace bench::floor
