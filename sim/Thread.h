#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>
#include <vector>

#include "sim/Loan.h"
#include "sim/Simulation.h"

namespace sim {

struct Run;

constexpr int64_t kNever = INT64_MAX;
constexpr int64_t kNsPerSecond = 1'000'000'000;

inline int64_t addSaturated(int64_t timeNs, int64_t durationNs) {
    return durationNs > kNever - timeNs ? kNever : timeNs + durationNs;
}

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
    kSleep,
    kCell
};
enum class WaitKind { kNothing, kMutex, kCondition, kJoin, kSleep, kYield };
enum class Wake { kSignal, kDeadline, kSpurious };

// What comes before the thread's next act: by the id of a shared cell the number of the oldest store
// that may still be read, and by the id of a thread's accesses the number of the last of them.
using View = std::vector<uint32_t>;
void learn(View& view, const View& other);

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
    pid_t tid = 0;       // of the real thread; set at its first turn
    Loan loan;

    Wait wait;
    Wake wake = Wake::kSignal;     // how the last wait ended
    std::vector<int> heldMutexes;  // their numbers
    std::vector<const void*> heldAddresses;
    WaitQueue joiners;
    View view;
    size_t accesses = 0;  // their id in views; 0 before the first
    bool detached = false;
    bool ended = false;
    bool joined = false;  // or detached, for real: its handle may be another's
    int destructorRounds = 0;
};

// The simulated thread that the caller runs as; null outside a run.
inline thread_local Thread* tSelf = nullptr;

}  // namespace sim
