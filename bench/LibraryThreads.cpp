#include "bench/LibraryThreads.h"

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

namespace bench::threads {
namespace {

struct Start {
    void* (*body)(void*);
    void* argument;
};

std::mutex gDecisionLock;
std::deque<bool> gDecisions;
std::atomic<bool> gSkipTimers{false};
std::atomic<int> gRunning{0};
std::atomic<int> gIdleCount{0};
std::atomic<int> gWaitCount{0};
thread_local bool tLibraryThread = false;

template <typename Function>
Function* realCall(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
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
    tLibraryThread = true;
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
}

void skipTimers(bool skip) {
    gSkipTimers = skip;
}

int running() {
    return gRunning;
}

int idleCount() {
    return gIdleCount;
}

int waitCount() {
    return gWaitCount;
}

}  // namespace bench::threads

using namespace bench::threads;

extern "C" {

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto real = realCall<decltype(pthread_create)>("pthread_create");
    if (!takeDecision()) return real(handle, attributes, endAtOnce, nullptr);
    auto start = std::make_unique<Start>(Start{body, argument});
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
    if (tLibraryThread) ++gIdleCount, ++gWaitCount;
    return real(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    static const auto real = realCall<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    if (tLibraryThread && gSkipTimers) return ETIMEDOUT;
    if (tLibraryThread) ++gWaitCount;
    return real(condition, mutex, deadline);
}

}  // extern "C"
