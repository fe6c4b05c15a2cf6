#pragma once

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <unordered_map>
#include <vector>

#include "sim/Engine.h"

namespace sim {

// What a run knows about objects of one kind, by address. They are numbered in order of first use.
// A freed object is not always announced, so the idle ones are forgotten whenever there are many.
template <typename State>
class ObjectTable {
  public:
    State& at(const void* address) {
        Recent& recent = recentAt(address);
        if (recent.address != address) recent = {address, &find(address)};
        return *recent.state;
    }
    void forget(const void* address) {
        recentAt(address) = {};
        mStates.erase(address);
    }

  private:
    static constexpr size_t kSmallestSweep = 4096;
    static constexpr size_t kRecents = 64;

    struct Recent {
        const void* address = nullptr;
        State* state = nullptr;
    };

    Recent& recentAt(const void* address) {
        return mRecents[reinterpret_cast<uintptr_t>(address) / alignof(void*) % kRecents];
    }

    State& find(const void* address) {
        const auto found = mStates.find(address);
        if (found != mStates.end()) return found->second;
        if (mStates.size() >= mSweepAtSize) sweep();
        State& state = mStates[address];
        state.number = ++mLastNumber;
        return state;
    }

    void sweep() {
        mRecents = {};
        for (auto it = mStates.begin(); it != mStates.end();) {
            it = it->second.idle() ? mStates.erase(it) : std::next(it);
        }
        mSweepAtSize = std::max(kSmallestSweep, 2 * mStates.size());
    }

    std::unordered_map<const void*, State> mStates;
    std::array<Recent, kRecents> mRecents{};  // nearly every question is answered from here
    size_t mSweepAtSize = kSmallestSweep;
    int mLastNumber = 0;
};

// Which lock was taken while which was held. Locks are known by their numbers; idle ones may get a
// new number, which only forgets what was known about them.
class LockOrder {
  public:
    // `inner` is taken while `outer` is held. Returns whether that closes a circle.
    bool add(int outer, int inner);

  private:
    bool leadsTo(int from, int to) const;

    std::unordered_map<int, std::vector<int>> mInner;
};

// The modelled mutexes and conditions; the real objects are never locked or waited on.
// Results are those of the pthread function of the same name. All calls are for the current thread.
//
// An unlocked mutex is free for anybody: the longest waiting thread is woken but has to compete
// with those that run, as with the real ones. A signal goes to the longest waiting thread.
class Primitives {
  public:
    explicit Primitives(Engine& engine) : mEngine(engine) {}

    int lock(pthread_mutex_t* mutex);
    int tryLock(pthread_mutex_t* mutex);
    int unlock(pthread_mutex_t* mutex);
    void destroy(pthread_mutex_t* mutex);

    int wait(pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadlineNs);
    // `clock` is the one that the deadline is meant for; any but CLOCK_MONOTONIC is refused.
    int timedWait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                  const timespec& deadline);
    void signal(pthread_cond_t* condition);
    void broadcast(pthread_cond_t* condition);
    void destroy(pthread_cond_t* condition);

  private:
    struct Mutex {
        int number = 0;
        Thread* owner = nullptr;
        int depth = 0;  // above 1 only for recursive ones
        WaitQueue waiters;
        View view;  // of the thread that unlocked it last

        bool idle() const { return !owner && waiters.empty(); }
    };
    struct Condition {
        int number = 0;
        const void* mutex = nullptr;  // of the latest waiters
        WaitQueue waiters;

        bool idle() const { return waiters.empty(); }
    };

    void acquire(const pthread_mutex_t* handle);
    void take(Mutex& mutex, const void* address);
    void checkOrder(const Mutex& mutex);
    void checkSignal(const Condition& condition);
    void release(Mutex& mutex, const void* address);
    int lockAgain(Mutex& mutex, int kind);
    void requireHeldOnce(const Mutex& mutex);

    Engine& mEngine;
    ObjectTable<Mutex> mMutexes;
    LockOrder mOrder;
    ObjectTable<Condition> mConditions;
};

// The clock that the condition's attribute was set to.
clockid_t clockOf(const pthread_cond_t& condition);

bool isValid(const timespec& time);
// Times beyond the range of int64_t nanoseconds, nearly three centuries, become kNever.
int64_t toNs(const timespec& time);
timespec toTimespec(int64_t timeNs);

}  // namespace sim
