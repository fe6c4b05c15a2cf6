#include "bench/LibraryThreads.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <time.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

namespace bench::threads {
namespace {

struct Start {
    void* (*body)(void*);
    void* argument;
    int number;
};

constexpr int kNoLibraryThread = -1;

std::mutex gDecisionLock;
std::deque<bool> gDecisions;
std::atomic<bool> gSkipTimers{false};
std::atomic<int> gRunning{0};
std::atomic<int> gIdleCount{0};
std::atomic<int> gWaitCount{0};
std::atomic<int> gStarted{0};
std::atomic<bool> gDenyRealtime{false};
std::atomic<void (*)(const Wait&)> gObserver{nullptr};
thread_local int tNumber = kNoLibraryThread;

template <typename Function>
Function* realCall(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

bool isLibraryThread() {
    return tNumber != kNoLibraryThread;
}

int64_t toNs(const timespec& time) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

void tellObserver(int64_t deadline, int result) {
    const auto observer = gObserver.load();
    if (observer == nullptr || !isLibraryThread()) return;
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    observer({tNumber, deadline, toNs(now), result == ETIMEDOUT});
}

bool takeDecision() {
    const std::lock_guard<std::mutex> guard(gDecisionLock);
    if (gDecisions.empty()) return true;
    const bool run = gDecisions.front();
    gDecisions.pop_front();
    return run;
}

void* runLibraryThread(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    tNumber = start->number;
    void* const result = start->body(start->argument);
    --gRunning;
    return result;
}

void* endAtOnce(void*) {
    return nullptr;
}

}  // namespace

void letRun(std::vector<bool> decisions) {
    const std::lock_guard<std::mutex> guard(gDecisionLock);
    gDecisions.assign(decisions.begin(), decisions.end());
    gStarted = 0;
}

void skipTimers(bool skip) {
    gSkipTimers = skip;
}

int running() {
    return gRunning;
}

int current() {
    return tNumber;
}

int idleCount() {
    return gIdleCount;
}

int waitCount() {
    return gWaitCount;
}

void observeWaits(void (*observer)(const Wait& wait)) {
    gObserver = observer;
}

void denyRealtime(bool deny) {
    gDenyRealtime = deny;
}

}  // namespace bench::threads

using namespace bench::threads;

extern "C" {

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto real = realCall<decltype(pthread_create)>("pthread_create");
    if (!takeDecision()) return real(handle, attributes, endAtOnce, nullptr);
    auto start = std::make_unique<Start>(Start{body, argument, gStarted++});
    ++gRunning;
    const int error = real(handle, attributes, runLibraryThread, start.get());
    if (error == 0) {
        (void)start.release();  // the thread's now
    } else {
        --gRunning;
    }
    return error;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static const auto real = realCall<decltype(pthread_cond_wait)>("pthread_cond_wait");
    if (isLibraryThread()) ++gIdleCount, ++gWaitCount;
    const int result = real(condition, mutex);
    tellObserver(0, result);
    return result;
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    static const auto real = realCall<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    if (isLibraryThread() && gSkipTimers) return ETIMEDOUT;
    if (isLibraryThread()) ++gWaitCount;
    const int result = real(condition, mutex, deadline);
    tellObserver(toNs(*deadline), result);
    return result;
}

int sched_setscheduler(pid_t tid, int policy, const sched_param* parameters) noexcept {
    static const auto real = realCall<decltype(sched_setscheduler)>("sched_setscheduler");
    if (!gDenyRealtime) return real(tid, policy, parameters);
    errno = EPERM;
    return -1;
}

int setpriority(__priority_which_t which, id_t who, int nice) noexcept {
    static const auto real = realCall<decltype(setpriority)>("setpriority");
    if (!gDenyRealtime) return real(which, who, nice);
    errno = EACCES;
    return -1;
}

}  // extern "C"
