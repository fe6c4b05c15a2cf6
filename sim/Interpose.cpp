// The C library's blocking calls, and those that tell threads apart, defined in the executable so
// that every shared library binds to them. Each goes to the model on a thread of a run, and to the
// real function on any other.

#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "sim/RealCalls.h"
#include "sim/Run.h"
#include "sim/Unseen.h"

namespace {

using sim::tSelf;
namespace real = sim::real;

constexpr size_t kLongestName = 15;  // of a thread, without its end
constexpr int kNiceMin = -20;
constexpr int kNiceMax = 19;
constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kNsPerSecond = 1'000'000'000;

// A part of the run, for the length of one expression.
template <typename Part>
class Using {
  public:
    explicit Using(Part& part) : mPart(part) {}
    Part* operator->() { return &mPart; }

  private:
    sim::Unseen mUnseen;
    Part& mPart;
};

Using<sim::Engine> engine() {
    return Using(tSelf->run->engine);
}
Using<sim::Primitives> primitives() {
    return Using(tSelf->run->primitives);
}
Using<sim::Threads> threads() {
    return Using(tSelf->run->threads);
}

int failWith(int error) {
    errno = error;
    return -1;
}

void sleepFor(const timespec& duration) {
    sim::sleepFor(sim::toNs(duration));
}

void refuse(const char* call) {
    engine()->misuse(std::string("calls ") + call + ", which is not modelled: refused");
}

// An error number, as clock_nanosleep returns it.
int sleepOn(clockid_t clock, int flags, const timespec& time) {
    if (!sim::isValid(time) || time.tv_sec < 0) return EINVAL;
    if ((flags & TIMER_ABSTIME) == 0) {
        sleepFor(time);
        return 0;
    }
    if (clock != CLOCK_MONOTONIC) refuse("clock_nanosleep until a time of another clock");
    sim::sleepUntil(sim::toNs(time));
    return 0;
}

bool isPriorityOf(int policy, int priority) {
    const int lowest = sched_get_priority_min(policy);
    return lowest >= 0 && priority >= lowest && priority <= sched_get_priority_max(policy);
}

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    return tSelf ? primitives()->lock(mutex) : real::mutexLock(mutex);
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    return tSelf ? primitives()->tryLock(mutex) : real::mutexTrylock(mutex);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* deadline) noexcept {
    if (tSelf) refuse("pthread_mutex_timedlock");
    return real::mutexTimedlock(mutex, deadline);
}

int pthread_mutex_clocklock(pthread_mutex_t* mutex, clockid_t clock,
                            const timespec* deadline) noexcept {
    if (tSelf) refuse("pthread_mutex_clocklock");
    return real::mutexClocklock(mutex, clock, deadline);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    return tSelf ? primitives()->unlock(mutex) : real::mutexUnlock(mutex);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    if (tSelf) primitives()->destroy(mutex);
    return real::mutexDestroy(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    if (!tSelf) return real::condWait(condition, mutex);
    return primitives()->wait(condition, mutex, sim::kNever);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
    if (!tSelf) return real::condTimedwait(condition, mutex, deadline);
    return primitives()->timedWait(condition, mutex, sim::clockOf(*condition), *deadline);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* deadline) {
    if (!tSelf) return real::condClockwait(condition, mutex, clock, deadline);
    return primitives()->timedWait(condition, mutex, clock, *deadline);
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    if (!tSelf) return real::condSignal(condition);
    primitives()->signal(condition);
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    if (!tSelf) return real::condBroadcast(condition);
    primitives()->broadcast(condition);
    return 0;
}

int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
    if (tSelf) primitives()->destroy(condition);
    return real::condDestroy(condition);
}

int pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) noexcept {
    if (!tSelf) return real::create(handle, attributes, start, argument);
    return threads()->create(handle, attributes, start, argument);
}

int pthread_join(pthread_t handle, void** result) {
    return tSelf ? threads()->join(handle, result) : real::join(handle, result);
}

int pthread_detach(pthread_t handle) noexcept {
    return tSelf ? threads()->detach(handle) : real::detach(handle);
}

int pthread_setname_np(pthread_t handle, const char* name) noexcept {
    if (tSelf) engine()->step(sim::Call::kAttribute);
    sim::Thread* thread = tSelf ? threads()->find(handle) : nullptr;
    if (!thread) return real::setName(handle, name);
    if (strlen(name) > kLongestName) return ERANGE;
    thread->record.name = name;
    return 0;
}

pid_t gettid() noexcept {
    return tSelf ? tSelf->tid : real::gettid();
}

int setpriority(__priority_which_t which, id_t who, int nice) noexcept {
    sim::Thread* thread =
            tSelf && which == PRIO_PROCESS ? threads()->find(static_cast<pid_t>(who)) : nullptr;
    if (!thread) return real::setPriority(which, who, nice);
    engine()->step(sim::Call::kAttribute);
    thread->record.nice = std::clamp(nice, kNiceMin, kNiceMax);
    return 0;
}

int sched_setscheduler(pid_t tid, int policy, const sched_param* parameters) noexcept {
    sim::Thread* thread = tSelf ? threads()->find(tid) : nullptr;
    if (!thread) return real::setScheduler(tid, policy, parameters);
    engine()->step(sim::Call::kAttribute);
    const int plainPolicy = policy & ~SCHED_RESET_ON_FORK;
    if (!isPriorityOf(plainPolicy, parameters->sched_priority)) return failWith(EINVAL);
    thread->record.policy = plainPolicy;
    thread->record.priority = parameters->sched_priority;
    return 0;
}

int sched_yield() noexcept {
    if (!tSelf) return real::yield();
    engine()->step(sim::Call::kYield);
    engine()->yield();
    return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    if (!tSelf || clock != CLOCK_MONOTONIC) return real::clockGettime(clock, time);
    engine()->step(sim::Call::kClock);
    *time = sim::toTimespec(engine()->now());
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    return tSelf ? sleepOn(clock, flags, *time) : real::clockNanosleep(clock, flags, time, rest);
}

int nanosleep(const timespec* duration, timespec* rest) {
    if (!tSelf) return real::nanosleep(duration, rest);
    const int error = sleepOn(CLOCK_MONOTONIC, 0, *duration);
    return error == 0 ? 0 : failWith(error);
}

int usleep(useconds_t duration) {
    if (!tSelf) return real::usleep(duration);
    sim::sleepFor(duration * kNsPerUs);
    return 0;
}

unsigned sleep(unsigned duration) {
    if (!tSelf) return real::sleep(duration);
    sim::sleepFor(duration * kNsPerSecond);
    return 0;
}

}  // extern "C"
