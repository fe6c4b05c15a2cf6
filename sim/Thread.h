#pragma once

#include <errno.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "sim/Simulation.h"

namespace sim {

struct Run;

constexpr int64_t kNever = INT64_MAX;

// Where a real thread stands while another one has the turn. Of system calls, as the thread
// sanitizer takes a semaphore of the C library for one of the program's.
class Gate {
  public:
    void open() {
        mOpen.store(1, std::memory_order_release);
        syscall(SYS_futex, &mOpen, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    void pass() {
        const int error = errno;  // the program's
        while (mOpen.exchange(0, std::memory_order_acquire) == 0) {
            syscall(SYS_futex, &mOpen, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
        }
        errno = error;
    }

  private:
    std::atomic<uint32_t> mOpen{0};
};

enum class Call {
    kLock,
    kTryLock,
    kUnlock,
    kWait,
    kSignal,
    kBroadcast,
    kCreate,
    kJoin,
    kDetach,
    kAttribute,
    kYield,
    kClock,
    kSleep
};
enum class WaitKind { kNothing, kMutex, kCondition, kJoin, kSleep, kYield };
enum class Wake { kSignal, kDeadline, kSpurious };

struct Thread;
using WaitQueue = std::vector<Thread*>;  // the longest waiting one first

// What keeps a thread from running.
struct Wait {
    WaitKind kind = WaitKind::kNothing;
    int object = 0;               // number of the mutex or condition, id of the thread to be joined
    int64_t deadlineNs = kNever;  // kNever: only another thread can end the wait
    WaitQueue* queue = nullptr;   // where others find it; null for a plain sleep
};

// A simulated thread. Only the thread that has the turn touches these, whoever's they are.
struct Thread {
    ThreadRecord record;
    Run* run = nullptr;
    void* (*start)(void*) = nullptr;
    void* argument = nullptr;
    pthread_t handle{};  // unique among the threads of the run until `joined`
    pid_t tid = 0;       // set at its first turn
    Gate gate;

    Wait wait;
    Wake wake = Wake::kSignal;     // how the last wait ended
    std::vector<int> heldMutexes;  // their numbers
    std::vector<const void*> heldAddresses;
    WaitQueue joiners;
    bool detached = false;
    bool ended = false;
    bool joined = false;  // or detached, for real: its handle may be another's
    int destructorRounds = 0;
};

// The simulated thread that the calling real thread is; null outside a run.
inline thread_local Thread* tSelf = nullptr;

}  // namespace sim
