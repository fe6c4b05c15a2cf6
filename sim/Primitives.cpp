#include "sim/Primitives.h"

#include <errno.h>

#include <algorithm>
#include <string>

#include "sim/Report.h"
#include "sim/Unseen.h"

namespace sim {

namespace {

// The C library keeps the kind and the clock inside the object. Reading them there also covers
// objects that were made before the run, and static initialisers.
constexpr int kMutexKindMask = 3;
constexpr unsigned kConditionClockMask = 2;

int kindOf(const pthread_mutex_t* mutex) {
    return mutex->__data.__kind & kMutexKindMask;
}

template <typename T>
void removeOne(std::vector<T>& values, const T& value) {
    values.erase(std::find(values.begin(), values.end(), value));
}

template <typename State>
std::string numbered(const char* kind, const State& state) {
    return std::string(kind) + " #" + std::to_string(state.number);
}

}  // namespace

int Primitives::lock(pthread_mutex_t* handle) {
    mEngine.step(Call::kLock);
    Mutex& mutex = mMutexes.at(handle);
    if (mutex.owner == &mEngine.current()) return lockAgain(mutex, kindOf(handle));
    if (mEngine.options().checkLockOrder) checkOrder(mutex);
    if (mutex.owner) {
        acquire(handle);
    } else {
        take(mutex, handle);
    }
    mEngine.progress();
    return 0;
}

int Primitives::lockAgain(Mutex& mutex, int kind) {
    if (kind == PTHREAD_MUTEX_ERRORCHECK_NP) return EDEADLK;
    if (kind != PTHREAD_MUTEX_RECURSIVE_NP) {
        mEngine.misuse("locks " + numbered("mutex", mutex) + ", which it holds already");
    }
    ++mutex.depth;
    return 0;
}

int Primitives::tryLock(pthread_mutex_t* handle) {
    mEngine.step(Call::kTryLock);
    Mutex& mutex = mMutexes.at(handle);
    const bool again = mutex.owner == &mEngine.current();
    if (again && kindOf(handle) == PTHREAD_MUTEX_RECURSIVE_NP) {
        ++mutex.depth;
        return 0;
    }
    if (mutex.owner) return EBUSY;
    take(mutex, handle);
    mEngine.progress();
    return 0;
}

int Primitives::unlock(pthread_mutex_t* handle) {
    mEngine.step(Call::kUnlock);
    Mutex& mutex = mMutexes.at(handle);
    if (mutex.owner != &mEngine.current()) {
        if (kindOf(handle) == PTHREAD_MUTEX_ERRORCHECK_NP) return EPERM;
        mEngine.misuse("unlocks " + numbered("mutex", mutex) + ", held by " +
                       (mutex.owner ? nameOf(*mutex.owner) : "nobody"));
    }
    if (--mutex.depth == 0) release(mutex, handle);
    mEngine.progress();
    return 0;
}

void Primitives::destroy(pthread_mutex_t* handle) {
    const Mutex& mutex = mMutexes.at(handle);
    if (!mutex.idle()) {
        mEngine.misuse("destroys " + numbered("mutex", mutex) + ", held by " +
                       (mutex.owner ? nameOf(*mutex.owner) : "nobody but waited for"));
    }
    mMutexes.forget(handle);
}

void Primitives::acquire(const pthread_mutex_t* handle) {
    for (;;) {
        // Looked up anew each time: an idle mutex may have been forgotten while the thread was
        // away.
        Mutex& mutex = mMutexes.at(handle);
        if (!mutex.owner) return take(mutex, handle);
        mEngine.block({WaitKind::kMutex, mutex.number, kNever, &mutex.waiters});
    }
}

bool LockOrder::add(int outer, int inner) {
    std::vector<int>& known = mInner[outer];
    if (std::find(known.begin(), known.end(), inner) != known.end()) return false;
    known.push_back(inner);
    return leadsTo(inner, outer);
}

bool LockOrder::leadsTo(int from, int to) const {
    if (from == to) return true;
    const auto found = mInner.find(from);
    if (found == mInner.end()) return false;
    return std::any_of(found->second.begin(), found->second.end(),
                       [&](int inner) { return leadsTo(inner, to); });
}

// A try that fails does not wait, so only locking asks.
void Primitives::checkOrder(const Mutex& mutex) {
    for (const int outer : mEngine.current().heldMutexes) {
        if (!mOrder.add(outer, mutex.number)) continue;
        mEngine.fail(Failure::kLockOrder, nameOf(mEngine.current()) + " takes " +
                                                  numbered("mutex", mutex) + " under mutex #" +
                                                  std::to_string(outer) +
                                                  ", which was also taken the other way round");
    }
}

void Primitives::take(Mutex& mutex, const void* address) {
    mutex.owner = &mEngine.current();
    mutex.depth = 1;
    mutex.owner->heldMutexes.push_back(mutex.number);
    mutex.owner->heldAddresses.push_back(address);
    learn(mutex.owner->view, mutex.view);
    if (isUnderThreadSanitizer()) __tsan_acquire(const_cast<void*>(address));
    if (mEngine.options().onUse) mEngine.options().onUse(address);
}

void Primitives::release(Mutex& mutex, const void* address) {
    if (isUnderThreadSanitizer()) __tsan_release(const_cast<void*>(address));
    mutex.view = mutex.owner->view;
    removeOne(mutex.owner->heldMutexes, mutex.number);
    removeOne(mutex.owner->heldAddresses, address);
    mutex.owner = nullptr;
    mutex.depth = 0;
    if (!mutex.waiters.empty()) mEngine.wake(*mutex.waiters.front(), Wake::kSignal);
}

void Primitives::requireHeldOnce(const Mutex& mutex) {
    if (mutex.owner != &mEngine.current()) {
        mEngine.misuse("waits with " + numbered("mutex", mutex) + ", which it does not hold");
    }
    if (mutex.depth != 1) {
        mEngine.misuse("waits with " + numbered("mutex", mutex) + ", which it locked repeatedly");
    }
}

int Primitives::wait(pthread_cond_t* conditionHandle, pthread_mutex_t* mutexHandle,
                     int64_t deadlineNs) {
    mEngine.step(Call::kWait);
    Mutex& mutex = mMutexes.at(mutexHandle);
    requireHeldOnce(mutex);
    Condition& condition = mConditions.at(conditionHandle);
    if (!condition.waiters.empty() && condition.mutex != mutexHandle) {
        mEngine.misuse("waits for " + numbered("condition", condition) + " with " +
                       numbered("mutex", mutex) + ", others wait with another one");
    }
    condition.mutex = mutexHandle;
    release(mutex, mutexHandle);
    Wake wake = Wake::kDeadline;
    if (deadlineNs > mEngine.now()) {
        wake = mEngine.block(
                {WaitKind::kCondition, condition.number, deadlineNs, &condition.waiters});
    } else {
        mEngine.perturb();
    }
    ++mEngine.current().record.wakeUps;
    acquire(mutexHandle);
    mEngine.progress();
    return wake == Wake::kDeadline ? ETIMEDOUT : 0;
}

int Primitives::timedWait(pthread_cond_t* conditionHandle, pthread_mutex_t* mutex, clockid_t clock,
                          const timespec& deadline) {
    if (!isValid(deadline)) return EINVAL;
    if (clock != CLOCK_MONOTONIC) {
        mEngine.misuse("waits for " + numbered("condition", mConditions.at(conditionHandle)) +
                       " with a deadline on another clock than CLOCK_MONOTONIC: refused");
    }
    return wait(conditionHandle, mutex, toNs(deadline));
}

// Without the lock it can come between a waiter's look and its wait, and is lost.
void Primitives::checkSignal(const Condition& condition) {
    if (!mEngine.options().checkSignals || !condition.mutex) return;
    const auto& held = mEngine.current().heldAddresses;
    if (std::find(held.begin(), held.end(), condition.mutex) != held.end()) return;
    mEngine.fail(Failure::kBareSignal, nameOf(mEngine.current()) + " signals " +
                                               numbered("condition", condition) +
                                               " without the lock that is waited with");
}

void Primitives::signal(pthread_cond_t* handle) {
    mEngine.step(Call::kSignal);
    Condition& condition = mConditions.at(handle);
    checkSignal(condition);
    if (!condition.waiters.empty()) mEngine.wake(*condition.waiters.front(), Wake::kSignal);
    mEngine.progress();
}

void Primitives::broadcast(pthread_cond_t* handle) {
    mEngine.step(Call::kBroadcast);
    Condition& condition = mConditions.at(handle);
    checkSignal(condition);
    while (!condition.waiters.empty()) mEngine.wake(*condition.waiters.front(), Wake::kSignal);
    mEngine.progress();
}

void Primitives::destroy(pthread_cond_t* handle) {
    const Condition& condition = mConditions.at(handle);
    if (!condition.idle()) {
        mEngine.misuse("destroys " + numbered("condition", condition) + ", for which " +
                       nameOf(*condition.waiters.front()) + " waits");
    }
    mConditions.forget(handle);
}

clockid_t clockOf(const pthread_cond_t& condition) {
    return condition.__data.__wrefs & kConditionClockMask ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

bool isValid(const timespec& time) {
    return time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
}

int64_t toNs(const timespec& time) {
    if (time.tv_sec >= INT64_MAX / kNsPerSecond) return kNever;
    if (time.tv_sec < 0) return 0;
    return time.tv_sec * kNsPerSecond + time.tv_nsec;
}

timespec toTimespec(int64_t timeNs) {
    timespec time{};
    time.tv_sec = timeNs / kNsPerSecond;
    time.tv_nsec = timeNs % kNsPerSecond;
    return time;
}

}  // namespace sim
