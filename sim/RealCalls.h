#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace sim {

// The address of the next definition of `name` behind the executable's. Ends the program without
// one.
void* findRealCall(const char* name);

// The C library's (or a sanitizer's) own definition of an interposed function, looked up at the
// first call: some are called before any constructor of this program has run.
template <typename Function>
class RealCall {
  public:
    constexpr explicit RealCall(const char* name) : mName(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments) {
        return resolve()(arguments...);
    }

    Function* resolve() {
        Function* function = mFunction.load(std::memory_order_relaxed);
        if (!function) {
            function = reinterpret_cast<Function*>(findRealCall(mName));
            mFunction.store(function, std::memory_order_relaxed);
        }
        return function;
    }

  private:
    const char* mName;
    std::atomic<Function*> mFunction{nullptr};
};

namespace real {

inline RealCall<int(pthread_mutex_t*)> mutexLock{"pthread_mutex_lock"};
inline RealCall<int(pthread_mutex_t*)> mutexTrylock{"pthread_mutex_trylock"};
inline RealCall<int(pthread_mutex_t*, const timespec*)> mutexTimedlock{"pthread_mutex_timedlock"};
inline RealCall<int(pthread_mutex_t*, clockid_t, const timespec*)> mutexClocklock{
        "pthread_mutex_clocklock"};
inline RealCall<int(pthread_mutex_t*)> mutexUnlock{"pthread_mutex_unlock"};
inline RealCall<int(pthread_mutex_t*)> mutexDestroy{"pthread_mutex_destroy"};
inline RealCall<int(pthread_cond_t*, pthread_mutex_t*)> condWait{"pthread_cond_wait"};
inline RealCall<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> condTimedwait{
        "pthread_cond_timedwait"};
inline RealCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> condClockwait{
        "pthread_cond_clockwait"};
inline RealCall<int(pthread_cond_t*)> condSignal{"pthread_cond_signal"};
inline RealCall<int(pthread_cond_t*)> condBroadcast{"pthread_cond_broadcast"};
inline RealCall<int(pthread_cond_t*)> condDestroy{"pthread_cond_destroy"};
inline RealCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> create{
        "pthread_create"};
inline RealCall<int(pthread_t, void**)> join{"pthread_join"};
inline RealCall<int(pthread_t)> detach{"pthread_detach"};
inline RealCall<int(pthread_t, const char*)> setName{"pthread_setname_np"};
inline RealCall<pid_t()> gettid{"gettid"};
inline RealCall<int()> yield{"sched_yield"};
inline RealCall<int(pid_t, int, const sched_param*)> setScheduler{"sched_setscheduler"};
inline RealCall<int(__priority_which_t, id_t, int)> setPriority{"setpriority"};
inline RealCall<int(clockid_t, timespec*)> clockGettime{"clock_gettime"};
inline RealCall<int(clockid_t, int, const timespec*, timespec*)> clockNanosleep{"clock_nanosleep"};
inline RealCall<int(const timespec*, timespec*)> nanosleep{"nanosleep"};
inline RealCall<int(useconds_t)> usleep{"usleep"};
inline RealCall<unsigned(unsigned)> sleep{"sleep"};

}  // namespace real

// Looks all of them up. A look-up takes the loader's lock, which a simulated thread may hold while
// it waits for others, in a destructor that dlclose runs; so none may be left for the middle of a
// run.
inline void resolveRealCalls() {
    const auto resolve = [](auto&... calls) { (calls.resolve(), ...); };
    using namespace real;
    resolve(mutexLock, mutexTrylock, mutexTimedlock, mutexClocklock, mutexUnlock, mutexDestroy,
            condWait, condTimedwait, condClockwait, condSignal, condBroadcast, condDestroy, create,
            join, detach, setName, gettid, yield, setScheduler, setPriority, clockGettime,
            clockNanosleep, nanosleep, usleep, sleep);
}

}  // namespace sim
