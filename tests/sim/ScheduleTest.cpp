// Who runs when, and what threads are: random schedules, thread ends, attributes, and calls outside
// a run.

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/sim/Programs.h"

namespace {

using namespace simtest;
using namespace std::chrono_literals;

// Four threads on one lock and one condition; who did what when, as text.
std::string traceOf(uint64_t seed) {
    std::string trace;
    const sim::Outcome outcome = sim::run(random(seed), [&trace] {
        std::mutex mutex;
        std::condition_variable condition;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&, i] {
                for (int round = 0; round < 5; ++round) {
                    std::unique_lock lock(mutex);
                    condition.wait_for(lock, std::chrono::microseconds(100 + i));
                    trace += std::to_string(i) + "@" + std::to_string(sim::now()) + " ";
                    if (i % 2 == 0) condition.notify_one();
                }
            });
        }
        for (auto& thread : threads) thread.join();
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    return trace + std::to_string(outcome.steps);
}

TEST(Schedule, SameSeed_GivesTheSameRun) {
    constexpr uint64_t kSeeds = 100;
    std::set<std::string> traces;
    for (uint64_t seed = 0; seed < kSeeds; ++seed) {
        const std::string trace = traceOf(seed);
        EXPECT_EQ(trace, traceOf(seed)) << "seed " << seed;
        traces.insert(trace);
    }
    EXPECT_GT(traces.size(), kSeeds / 2);
}

// Two producers and two consumers on a queue for one; the consumers also give up and come again.
void boundedQueue(int& sum) {
    constexpr int kItemsEach = 5;
    std::mutex mutex;
    std::condition_variable filled, emptied;
    int slot = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int item = 1; item <= kItemsEach; ++item) {
                std::unique_lock lock(mutex);
                emptied.wait(lock, [&] { return slot == 0; });
                slot = item;
                filled.notify_one();
            }
        });
        threads.emplace_back([&] {
            for (int taken = 0; taken < kItemsEach;) {
                std::unique_lock lock(mutex);
                if (!filled.wait_for(lock, 1us, [&] { return slot != 0; })) continue;
                sum += std::exchange(slot, 0);
                ++taken;
                emptied.notify_one();
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST(Schedule, CorrectProgram_PassesUnderEverySeed) {
    for (uint64_t seed = 0; seed < kSeedsToTry; ++seed) {
        int sum = 0;
        const sim::Outcome outcome = sim::run(random(seed), [&sum] { boundedQueue(sum); });
        ASSERT_TRUE(outcome.ok()) << outcome.report;
        ASSERT_EQ(sum, 2 * (1 + 2 + 3 + 4 + 5)) << "seed " << seed;
    }
}

TEST(Schedule, RunnableThreadThatMissesADeadline_IsFoundByClockJumps) {
    bool missed = false;
    const Program heartbeat = [&missed] {
        std::mutex mutex;
        std::condition_variable condition;
        bool beaten = false;
        std::thread worker([&] {
            for (int work = 0; work < 3; ++work) const std::lock_guard lock(mutex);
            const std::lock_guard lock(mutex);
            beaten = true;
            condition.notify_one();
        });
        std::unique_lock lock(mutex);
        missed |= !condition.wait_for(lock, 10ms, [&] { return beaten; });
        lock.unlock();
        worker.join();
    };
    ASSERT_TRUE(sim::run(firstCome(), heartbeat).ok());
    EXPECT_FALSE(missed);
    for (uint64_t seed = 0; seed < kSeedsToTry && !missed; ++seed)
        sim::run(random(seed), heartbeat);
    EXPECT_TRUE(missed);
}

TEST(Schedule, NthThreadCreation_FailsWhenAsked) {
    sim::Options options = firstCome();
    options.failThreadCreation = 2;
    std::string results;
    const sim::Outcome outcome = sim::run(options, [&results] {
        for (int i = 0; i < 3; ++i) {
            try {
                std::thread([] {}).join();
                results += "started ";
            } catch (const std::system_error& error) {
                results +=
                        error.code() == std::errc::resource_unavailable_try_again ? "EAGAIN " : "?";
            }
        }
    });
    EXPECT_EQ(results, "started EAGAIN started ");
    EXPECT_EQ(outcome.threads.size(), 3u);
}

void sayLastWords(void* trace) {
    sim::sleepFor(1'000);
    *static_cast<std::string*>(trace) += sim::inSimulation() ? "simulated " : "outside ";
}

TEST(Schedule, DestructorsOfThreadData_AreStillSimulatedAndEndBeforeTheJoin) {
    struct LastWords {
        std::string* trace = nullptr;
        ~LastWords() { sayLastWords(trace); }
    };
    std::string trace;
    const sim::Outcome outcome = sim::run(firstCome(), [&trace] {
        pthread_key_t key{};
        pthread_key_create(&key, sayLastWords);
        std::thread thread([&trace, key] {
            thread_local LastWords sWords;
            sWords.trace = &trace;
            pthread_setspecific(key, &trace);
            trace += "end ";
        });
        thread.join();
        trace += "joined";
        pthread_key_delete(key);
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    EXPECT_EQ(trace, "end simulated simulated joined");
}

TEST(Schedule, JoinDeliversTheResult_AlsoOfPthreadExit) {
    static int sByReturn, sByExit;
    const sim::Outcome outcome = sim::run(firstCome(), [] {
        pthread_t handles[2];
        pthread_create(
                &handles[0], nullptr, [](void*) -> void* { return &sByReturn; }, nullptr);
        pthread_create(
                &handles[1], nullptr, [](void*) -> void* { pthread_exit(&sByExit); }, nullptr);
        sim::sleepFor(1);  // both have ended
        void* results[2];
        for (int i = 0; i < 2; ++i) pthread_join(handles[i], &results[i]);
        EXPECT_EQ(results[0], &sByReturn);
        EXPECT_EQ(results[1], &sByExit);
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
}

TEST(Schedule, DetachedThreads_NeedNoJoin) {
    int64_t endNs = 0;
    const Program sleeper = [&endNs] {
        sim::sleepFor(50);
        endNs = sim::now();
    };
    const sim::Outcome outcome = sim::run(firstCome(), [&sleeper] {
        std::thread(sleeper).detach();
        pthread_attr_t detached;
        pthread_attr_init(&detached);
        pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
        pthread_t handle{};
        pthread_create(
                &handle, &detached, [](void*) -> void* { return nullptr; }, nullptr);
        pthread_attr_destroy(&detached);
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    EXPECT_EQ(outcome.endTimeNs, endNs);
}

TEST(Schedule, RecursiveMutex_IsFreeAfterAsManyUnlocks) {
    std::string trace;
    const sim::Outcome outcome = sim::run(firstCome(), [&trace] {
        std::recursive_mutex mutex;
        const auto tryFromAnother = [&] {
            std::thread([&] {
                const bool locked = mutex.try_lock();
                trace += locked ? "free " : "held ";
                if (locked) mutex.unlock();
            }).join();
        };
        mutex.lock();
        mutex.lock();
        mutex.unlock();
        tryFromAnother();
        mutex.unlock();
        tryFromAnother();
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    EXPECT_EQ(trace, "held free ");
}

TEST(Schedule, ThreadAttributes_AreRecordedInheritedAndNotApplied) {
    int realNice = -1;
    const sim::Outcome outcome = sim::run(firstCome(), [&realNice] {
        nameThisThread("body");
        setpriority(PRIO_PROCESS, 0, -8);
        sched_param parameters{};
        parameters.sched_priority = 2;
        EXPECT_EQ(sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &parameters), 0);
        parameters.sched_priority = 1'000;
        EXPECT_EQ(sched_setscheduler(0, SCHED_FIFO, &parameters), -1);
        realNice = getpriority(PRIO_PROCESS, 0);
        std::thread([] { setpriority(PRIO_PROCESS, 0, -100); }).join();
    });
    EXPECT_EQ(realNice, getpriority(PRIO_PROCESS, 0));
    ASSERT_EQ(outcome.threads.size(), 2u);
    const auto attributes = [](const sim::ThreadRecord& record) {
        return std::tuple(record.id, record.name, record.nice, record.policy, record.priority);
    };
    EXPECT_EQ(attributes(outcome.threads[0]), std::tuple(0, "body", -8, SCHED_FIFO, 2));
    EXPECT_EQ(attributes(outcome.threads[1]), std::tuple(1, "", -20, SCHED_FIFO, 2));
}

int64_t kernelClockNs() {
    timespec time{};
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &time);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

TEST(Schedule, OutsideARun_CallsReachTheRealFunctions) {
    const int64_t beforeNs = kernelClockNs();
    const int64_t nowNs = sim::now();
    EXPECT_GE(nowNs, beforeNs);
    EXPECT_LE(nowNs, kernelClockNs());
    EXPECT_FALSE(sim::inSimulation());

    std::mutex mutex;
    std::condition_variable condition;
    bool ready = false;
    std::unique_lock lock(mutex);
    EXPECT_EQ(condition.wait_until(lock, std::chrono::steady_clock::now()),
              std::cv_status::timeout);
    std::thread other([&] {
        const std::lock_guard otherLock(mutex);
        ready = true;
        condition.notify_one();
    });
    condition.wait(lock, [&] { return ready; });
    lock.unlock();
    other.join();
}

}  // namespace
