// Programs known to be wrong, which the simulation has to catch.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "tests/sim/Programs.h"

namespace {

using sim::Failure;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using namespace simtest;

void lockInversion() {
    std::mutex first, second;
    const auto lockBoth = [](const char* name, std::mutex& outer, std::mutex& inner) {
        nameThisThread(name);
        const std::lock_guard outerLock(outer);
        const std::lock_guard innerLock(inner);
    };
    std::thread left(lockBoth, "left", std::ref(first), std::ref(second));
    std::thread right(lockBoth, "right", std::ref(second), std::ref(first));
    left.join();
    right.join();
}

TEST(BadPrograms, LockInversion_IsReportedAsDeadlockWithBothOwners) {
    ASSERT_TRUE(sim::run(firstCome(), lockInversion).ok());
    sim::Outcome outcome;
    const uint64_t seed = findFailure(lockInversion, outcome);
    EXPECT_EQ(outcome.failure, Failure::kDeadlock);
    EXPECT_THAT(outcome.report,
                AllOf(HasSubstr("seed " + std::to_string(seed) + ","),
                      HasSubstr("thread 0 (the body): waits for the end of thread 1 \"left\""),
                      HasSubstr("\"left\": waits for mutex #2, held by thread 2 \"right\"; holds "
                                "mutex #1"),
                      HasSubstr("\"right\": waits for mutex #1, held by thread 1 \"left\"; holds "
                                "mutex #2")));
    const sim::Outcome replayed = sim::run(random(seed), lockInversion);
    EXPECT_EQ(replayed.report, outcome.report);
}

TEST(BadPrograms, LostWakeUp_IsReportedAsDeadlockOnTheCondition) {
    const Program flagTestedOutsideTheLock = [] {
        std::mutex mutex;
        std::condition_variable condition;
        bool ready = false;
        std::thread waiter([&] {
            if (ready) return;
            std::unique_lock lock(mutex);
            condition.wait(lock);
        });
        {
            const std::lock_guard lock(mutex);
            ready = true;
        }
        condition.notify_one();
        waiter.join();
    };
    sim::Outcome outcome;
    findFailure(flagTestedOutsideTheLock, outcome);
    EXPECT_EQ(outcome.failure, Failure::kDeadlock);
    EXPECT_THAT(outcome.report, HasSubstr("thread 1: waits for condition #"));
}

TEST(BadPrograms, IfInsteadOfWhileAroundAWait_ShowsThroughSpuriousWakeUps) {
    bool wentOnUnready = false;
    const Program ifAroundAWait = [&] {
        std::mutex mutex;
        std::condition_variable condition;
        bool ready = false;
        std::thread waiter([&] {
            std::unique_lock lock(mutex);
            if (!ready) condition.wait(lock);
            wentOnUnready |= !ready;
        });
        for (int i = 0; i < 10; ++i) sim::sleepFor(1);
        {
            const std::lock_guard lock(mutex);
            ready = true;
        }
        condition.notify_one();
        waiter.join();
    };
    ASSERT_TRUE(sim::run(firstCome(), ifAroundAWait).ok());
    EXPECT_FALSE(wentOnUnready);
    for (uint64_t seed = 0; seed < kSeedsToTry; ++seed) sim::run(random(seed), ifAroundAWait);
    EXPECT_TRUE(wentOnUnready);
}

pthread_t startThread(void* (*start)(void*), void* argument = nullptr) {
    pthread_t handle{};
    pthread_create(&handle, nullptr, start, argument);
    return handle;
}

TEST(BadPrograms, ThreadNobodyJoined_IsNamed) {
    const Program program = [] {
        const pthread_t joined = startThread([](void*) -> void* { return nullptr; });
        startThread([](void*) -> void* {
            nameThisThread("stray");
            return nullptr;
        });
        pthread_join(joined, nullptr);
    };
    const sim::Outcome outcome = sim::run(firstCome(), program);
    EXPECT_EQ(outcome.failure, Failure::kThreadNotJoined);
    EXPECT_THAT(outcome.report, AllOf(HasSubstr("thread 2 \"stray\": ended, not joined"),
                                      Not(HasSubstr("thread 1"))));
}

TEST(BadPrograms, ThreadLeftWaiting_IsADeadlockThatSaysTheBodyHasReturned) {
    static std::mutex sMutex;
    static std::condition_variable sCondition;
    const Program program = [] {
        startThread([](void*) -> void* {
            std::unique_lock lock(sMutex);
            sCondition.wait(lock);
            return nullptr;
        });
    };
    const sim::Outcome outcome = sim::run(firstCome(), program);
    EXPECT_EQ(outcome.failure, Failure::kDeadlock);
    EXPECT_THAT(outcome.report, AllOf(HasSubstr("the body has returned"),
                                      HasSubstr("thread 1: waits for condition #1")));
}

TEST(BadPrograms, MutexHeldByAnEndedThread_IsNamedWithItsLastOwner) {
    const Program program = [] {
        std::mutex mutex;
        std::thread([&] { mutex.lock(); }).join();
        mutex.lock();
    };
    EXPECT_THAT(
            sim::run(firstCome(), program).report,
            HasSubstr(
                    "thread 0 (the body): waits for mutex #1, held by thread 1, which has ended"));
}

const timespec kLater{5'000'000, 0};

// What a misuse has to hand: a fresh mutex, the same one locked, and a condition.
struct Objects {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t recursive = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;

    pthread_mutex_t* locked() {
        pthread_mutex_lock(&mutex);
        return &mutex;
    }
};

void* waitForEver(void* condition) {
    Objects own;
    pthread_cond_wait(static_cast<pthread_cond_t*>(condition), own.locked());
    return nullptr;
}

TEST(BadPrograms, WrongUseOfAPrimitive_IsReportedWithThreadAndObject) {
    const std::pair<const char*, void (*)(Objects&)> misuses[] = {
            {"thread 0 (the body) unlocks mutex #1, held by nobody",
             [](Objects& o) { pthread_mutex_unlock(&o.mutex); }},
            {"thread 1 unlocks mutex #1, held by thread 0 (the body)",
             [](Objects& o) { std::thread(pthread_mutex_unlock, o.locked()).join(); }},
            {"locks mutex #1, which it holds already",
             [](Objects& o) { pthread_mutex_lock(o.locked()); }},
            {"destroys mutex #1, held by thread 0",
             [](Objects& o) { pthread_mutex_destroy(o.locked()); }},
            {"destroys condition #1, for which thread 1 waits",
             [](Objects& o) {
                 startThread(waitForEver, &o.condition);
                 sim::sleepFor(1);
                 pthread_cond_destroy(&o.condition);
             }},
            {"waits with mutex #1, which it does not hold",
             [](Objects& o) { pthread_cond_wait(&o.condition, &o.mutex); }},
            {"waits with mutex #1, which it locked repeatedly",
             [](Objects& o) {
                 pthread_mutex_lock(&o.recursive);
                 pthread_mutex_lock(&o.recursive);
                 pthread_cond_wait(&o.condition, &o.recursive);
             }},
            {"another clock than CLOCK_MONOTONIC: refused",
             [](Objects& o) { pthread_cond_timedwait(&o.condition, o.locked(), &kLater); }},
            {"calls pthread_mutex_timedlock, which is not modelled: refused",
             [](Objects& o) { pthread_mutex_timedlock(&o.mutex, &kLater); }},
            {"calls pthread_mutex_clocklock, which is not modelled: refused",
             [](Objects& o) { pthread_mutex_clocklock(&o.mutex, CLOCK_MONOTONIC, &kLater); }},
            {"joins a thread that was joined or detached before",
             [](Objects&) {
                 const pthread_t handle = startThread([](void*) -> void* { return nullptr; });
                 pthread_join(handle, nullptr);
                 pthread_join(handle, nullptr);
             }},
    };
    for (const auto& [message, misuse] : misuses) {
        const sim::Outcome outcome = sim::run(firstCome(), [misuse = misuse] {
            Objects objects;
            misuse(objects);
        });
        EXPECT_EQ(outcome.failure, Failure::kMisuse) << message;
        EXPECT_THAT(outcome.report, HasSubstr(message));
    }
}

TEST(BadPrograms, Livelock_UsesUpTheBudgetItBurns) {
    const auto forEver = [](auto action) {
        return [action] {
            std::mutex mutex;
            std::thread other([&] {
                for (;;) action(mutex);
            });
            for (;;) action(mutex);
        };
    };
    sim::Options options = firstCome();
    options.stepBudget = 10'000;
    options.timeBudgetNs = 1'000'000;
    const auto politeness = [](std::mutex& mutex) {
        const std::lock_guard lock(mutex);
        sched_yield();
    };
    EXPECT_EQ(sim::run(options, forEver(politeness)).failure, Failure::kStepBudget);
    const auto polling = [](std::mutex&) { sim::sleepFor(1'000); };
    EXPECT_EQ(sim::run(options, forEver(polling)).failure, Failure::kTimeBudget);
    const auto spinning = [](std::mutex&) { sched_yield(); };
    EXPECT_EQ(sim::run(options, forEver(spinning)).failure, Failure::kDeadlock);
}

TEST(BadPrograms, FailureEndsTheProgramUnlessAskedOtherwise) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    sim::Options options = random(7);
    options.abortOnFailure = true;
    const Program program = [] { std::mutex().unlock(); };
    EXPECT_DEATH(sim::run(options, program), "replay with seed 7");
}

}  // namespace
