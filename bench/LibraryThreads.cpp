#include "bench/LibraryThreads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>

namespace bench::threads {
namespace {

struct Start {
    void* (*body)(void*);
    void* argument;
};

std::atomic<int> gOnly{kEvery};
std::atomic<int> gStarted{0};
std::atomic<int> gIdleCount{0};
thread_local bool tIsLibrarys = false;

template <typename Function>
Function* realCall(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void* runLibraryThread(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    tIsLibrarys = true;
    return start->body(start->argument);
}

void* endAtOnce(void*) {
    return nullptr;
}

}  // namespace

void runOnly(int nth) {
    gOnly = nth;
    gStarted = 0;
}

int started() {
    return gStarted;
}

int idleCount() {
    return gIdleCount;
}

}  // namespace bench::threads

using namespace bench::threads;

extern "C" {

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) noexcept {
    static const auto real = realCall<decltype(pthread_create)>("pthread_create");
    const int number = ++gStarted;
    if (gOnly != kEvery && gOnly != number) return real(handle, attributes, endAtOnce, nullptr);
    return real(handle, attributes, runLibraryThread, new Start{body, argument});
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    static const auto real = realCall<decltype(pthread_cond_wait)>("pthread_cond_wait");
    if (tIsLibrarys) ++gIdleCount;
    return real(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    static const auto real = realCall<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    return tIsLibrarys ? ETIMEDOUT : real(condition, mutex, deadline);
}

}  // extern "C"
