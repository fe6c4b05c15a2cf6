#include "sim/Simulation.h"

#include <malloc.h>
#include <sched.h>
#include <time.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "sim/RealCalls.h"
#include "sim/Report.h"
#include "sim/Run.h"
#include "sim/Unseen.h"

namespace sim {

namespace {

// The kernel takes part in a thread's start and end alone, in a quarter of the time if creator and
// created share one processor. Threads inherit this from their creator.
class PinnedToOneProcessor {
  public:
    PinnedToOneProcessor() {
        const int processor = sched_getcpu();
        mPinned = processor >= 0 && sched_getaffinity(0, sizeof(mBefore), &mBefore) == 0;
        if (!mPinned) return;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(processor), &one);
        sched_setaffinity(0, sizeof(one), &one);
    }
    ~PinnedToOneProcessor() {
        if (mPinned) sched_setaffinity(0, sizeof(mBefore), &mBefore);
    }
    PinnedToOneProcessor(const PinnedToOneProcessor&) = delete;
    PinnedToOneProcessor& operator=(const PinnedToOneProcessor&) = delete;

  private:
    cpu_set_t mBefore;
    bool mPinned = false;
};

class OnlyRun {
  public:
    OnlyRun() {
        if (tSelf || sActive.exchange(true)) throw std::logic_error("sim::run: a run is under way");
    }
    ~OnlyRun() { sActive = false; }
    OnlyRun(const OnlyRun&) = delete;
    OnlyRun& operator=(const OnlyRun&) = delete;

  private:
    inline static std::atomic<bool> sActive{false};
};

void* callBody(void* body) {
    (*static_cast<const std::function<void()>*>(body))();
    return nullptr;
}

void sleep(int64_t deadlineNs) {
    const Unseen unseen;
    Engine& engine = tSelf->run->engine;
    engine.step(Call::kSleep);
    if (deadlineNs > engine.now()) {
        engine.block({WaitKind::kSleep, 0, deadlineNs, nullptr});
    }
    engine.progress();
}

}  // namespace

const char* toString(Failure failure) {
    switch (failure) {
        case Failure::kNone:
            return "none";
        case Failure::kDeadlock:
            return "deadlock";
        case Failure::kStepBudget:
            return "step budget";
        case Failure::kTimeBudget:
            return "time budget";
        case Failure::kThreadNotJoined:
            return "thread not joined";
        case Failure::kMisuse:
            return "misuse";
        case Failure::kBareSignal:
            return "signal without its lock";
        case Failure::kUnorderedPointer:
            return "pointer without order";
        case Failure::kUnorderedEnd:
            return "end without order";
        case Failure::kLockOrder:
            return "lock order";
    }
    return "unknown";
}

Outcome run(const Options& options, const std::function<void()>& body) {
    const OnlyRun onlyRun;
    const PinnedToOneProcessor pinned;
    resolveRealCalls();
    mallopt(M_ARENA_MAX, 1);  // the threads take turns, so that one heap will do
    auto run = std::make_unique<Run>(options);
    Thread& bodyThread =
            run->threads.createBody(callBody, const_cast<std::function<void()>*>(&body));
    run->engine.runToEnd(bodyThread);
    if (!run->engine.outcome().ok()) {
        return run.release()->engine.outcome();  // its threads stand at its gates for ever
    }
    if (const Thread* leftover = run->threads.joinLeftovers()) {
        run->engine.recordFailure(Failure::kThreadNotJoined,
                                  nameOf(*leftover) + " was neither joined nor detached");
    }
    return run->engine.outcome();
}

bool inSimulation() {
    return tSelf != nullptr;
}

int64_t now() {
    if (tSelf) return tSelf->run->engine.now();
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return toNs(time);
}

int currentThread() {
    return tSelf ? tSelf->record.id : -1;
}

void sleepUntil(int64_t timeNs) {
    if (tSelf) return sleep(timeNs);
    const timespec time = toTimespec(timeNs);
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

void sleepFor(int64_t durationNs) {
    sleepUntil(addSaturated(now(), durationNs));
}

std::vector<ThreadRecord> threads() {
    return tSelf ? tSelf->run->engine.outcome().threads : std::vector<ThreadRecord>{};
}

std::vector<const void*> heldMutexes() {
    return tSelf ? tSelf->heldAddresses : std::vector<const void*>{};
}

const ThreadRecord& self() {
    return tSelf->record;
}

void setCalm(bool calm) {
    if (tSelf) tSelf->run->engine.setCalm(calm);
}

bool isAwaited() {
    return tSelf && !tSelf->joiners.empty();
}

}  // namespace sim
