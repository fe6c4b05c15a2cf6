#pragma once

// Virtual time for unmodified pthread code.
//
// A program that links sim/ defines, in the executable, the blocking calls of the C library:
// mutexes, conditions, thread creation, joining, yielding, sleeping and the monotonic clock. The
// dynamic linker binds every shared library to them. Outside sim::run() they pass through to the
// real functions. Inside, the program's threads run one at a time under a virtual clock:
//
//  - a switch happens only in those calls;
//  - the clock moves only when no thread can run, straight to the earliest deadline (random
//  schedules
//    may also jump there while threads could run, which starves them);
//  - a thread that spins with sched_yield counts as unable to run until another thread made
//  progress;
//  - nothing runnable and no deadline left is a deadlock, reported with every thread's state.
//
// Times are nanoseconds of CLOCK_MONOTONIC. A run is a pure function of its options and the body:
// the same seed gives the same run.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace sim {

enum class Schedule {
    kFirstCome,  // a thread runs until it blocks; the one that became ready first comes next
    kRandom,     // drawn from the seed, with starvation, clock jumps and spurious wake-ups
    // The two below look for what takes few, but particular, switches. Priorities: the ready thread
    // of the highest random priority runs, and a handful of times in the run the one that runs
    // falls to the bottom. Preemptions: a thread runs until it blocks, but for that many
    // switches away from it.
    kPriorityChanges,
    kFewPreemptions,
    // One of all there are up to Options::departures and staleLoads: the one Options::choices is at.
    kAll,
};

class Choices;

struct Options {
    Schedule schedule = Schedule::kFirstCome;
    uint64_t seed = 0;
    int64_t startTimeNs = 1'000'000'000'000;  // clock at the start of the body
    int64_t cpuCostPerCallNs = 0;             // charged to the clock at every intercepted call
    uint64_t stepBudget = 50'000'000;  // intercepted calls before the run counts as livelocked
    int64_t timeBudgetNs = INT64_MAX;  // virtual time before the run counts as livelocked
    int failThreadCreation = 0;        // the nth pthread_create fails with EAGAIN; 0: none does
    bool failLaterThreadCreations = false;  // and so do all after the nth
    // Not of first come. Without jumps no thread that can run is ever overtaken by the clock,
    // so that bounds on waiting times hold exactly.
    bool clockJumps = true;
    // About how many steps the run takes: the few switches are spread over so many.
    uint64_t expectedSteps = 2'000;
    // Of a build that explores: for how long a load of a shared cell may return an older value; 0 is
    // the memory as the machine has it.
    int64_t staleForNs = 0;
    Choices* choices = nullptr;  // kAll: not null
    int departures = 0;          // kAll: at most so many in a run
    int staleLoads = 0;          // kAll: likewise
    // Called by the thread that has just taken a mutex, or is about to access a shared cell. Must not
    // call anything that is modelled.
    std::function<void(const void* object)> onUse;
    bool checkLockOrder = false;  // locks taken in both orders are a failure, deadlock or not
    bool checkSignals = false;    // a signal without the lock that is waited with is a failure
    bool abortOnFailure = true;   // print the report and abort; otherwise only return it
    bool record = true;           // Outcome::record is wanted; 0 if not
};

enum class Failure {
    kNone,
    kDeadlock,         // nothing can run and no deadline is left
    kStepBudget,       // Options::stepBudget used up
    kTimeBudget,       // Options::timeBudgetNs used up
    kThreadNotJoined,  // a thread ended, or the body did, and nobody joined or detached it
    kMisuse,           // an error in the use of a primitive; the report says which
    kBareSignal,       // a signal without its lock; only with Options::checkSignals
    // Of shared cells where loads may be late (Options::staleForNs):
    kUnorderedPointer,  // a pointer was loaded without the order of its publication
    kUnorderedEnd,      // a cell was destroyed without an order after its last access
    kLockOrder,         // two locks were taken in both orders; only with Options::checkLockOrder
};

const char* toString(Failure failure);

struct ThreadRecord {
    int id = 0;  // 0 is the body, then in order of creation
    std::string name;
    int nice = 0;
    int policy = 0;  // SCHED_OTHER, SCHED_FIFO, ...
    int priority = 0;
    int wakeUps = 0;  // from conditions it slept on
    bool ended = false;
};

struct Outcome {
    Failure failure = Failure::kNone;
    std::string report;  // empty without a failure; otherwise names it, every thread and the seed
    uint64_t steps = 0;
    int64_t endTimeNs = 0;
    // A digest of which thread did what, and when; of no address, so that it is the same on every
    // machine.
    uint64_t record = 0;
    std::vector<ThreadRecord> threads;  // every thread that ever ran

    bool ok() const { return failure == Failure::kNone; }
};

// Runs `body` on a thread of its own until it and every thread it started have ended.
// After a failure the threads of the run stay parked for ever: the objects they use must not be
// destroyed, and nothing of the program under test can be unloaded.
// Not reentrant: one run at a time in a process, and none from within a run.
Outcome run(const Options& options, const std::function<void()>& body);

// The following may be called from threads of a run.

bool inSimulation();  // false on a thread that does not belong to a run
int64_t now();        // the virtual clock
int currentThread();  // ThreadRecord::id of the caller; -1 outside a run
void sleepUntil(int64_t timeNs);
void sleepFor(int64_t durationNs);

// What ThreadRecord shows of the calling thread's run so far.
std::vector<ThreadRecord> threads();

// The mutexes that the calling thread holds, in the order in which it took them.
std::vector<const void*> heldMutexes();
// Whether another thread waits for the calling one to end.
bool isAwaited();
// What a ThreadRecord shows of the calling thread itself.
const ThreadRecord& self();

// While calm, a random schedule behaves as kFirstCome: a program comes quickly to the state in which
// disturbing it is worth while, and can be looked at undisturbed afterwards. A run starts disturbed.
void setCalm(bool calm);

}  // namespace sim
