// What time it is: the virtual clock against exact nanoseconds.

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/sim/Programs.h"

namespace {

using namespace simtest;
using namespace std::chrono_literals;

const int64_t kStartNs = sim::Options{}.startTimeNs;

TEST(VirtualTime, AnHourOf60HzWaits_EndsAtTheExactNanosecond) {
    constexpr int64_t kFrameNs = 16'666'667;
    constexpr int64_t kFrames = 60 * 60 * 60;
    int64_t lateWakeUps = 0;
    const sim::Outcome outcome = sim::run(firstCome(), [&] {
        std::thread waiter([&] {
            android::Mutex mutex;
            android::Condition condition;
            const android::Mutex::Autolock lock(mutex);
            for (int64_t frame = 1; frame <= kFrames; ++frame) {
                const int result = condition.waitRelative(mutex, kFrameNs);
                lateWakeUps += result != -ETIMEDOUT || sim::now() != kStartNs + frame * kFrameNs;
            }
        });
        waiter.join();
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    EXPECT_EQ(lateWakeUps, 0);
    EXPECT_EQ(outcome.endTimeNs, kStartNs + kFrames * kFrameNs);
}

TEST(VirtualTime, EveryWayToSleep_TakesExactlyItsTime) {
    const std::pair<const char*, std::function<void()>> sleeps[] = {
            {"sleep_for", [] { std::this_thread::sleep_for(2s); }},
            {"sleep_until",
             [] { std::this_thread::sleep_until(std::chrono::steady_clock::now() + 2s); }},
            {"usleep", [] { usleep(2'000'000); }},
            {"sleep", [] { sleep(2); }},
            {"sleepFor", [] { sim::sleepFor(2'000'000'000); }},
            {"absolute",
             [] {
                 const timespec deadline{kStartNs / 1'000'000'000 + 2, 0};
                 clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr);
             }},
            {"wait_for",
             [] {
                 std::mutex mutex;
                 std::unique_lock lock(mutex);
                 std::condition_variable().wait_for(lock, 2s);
             }},
    };
    for (const auto& [name, program] : sleeps) {
        const sim::Outcome outcome = sim::run(firstCome(), program);
        EXPECT_EQ(outcome.endTimeNs, kStartNs + 2'000'000'000) << name << "\n" << outcome.report;
    }
}

TEST(VirtualTime, EqualDeadlines_WakeInTheOrderOfWaiting) {
    std::vector<int> order;
    sim::run(firstCome(), [&] {
        std::vector<std::thread> threads;
        for (int i = 1; i <= 4; ++i) {
            threads.emplace_back([&order, i] {
                sim::sleepUntil(kStartNs + 10 - i);
                sim::sleepUntil(kStartNs + 100);
                order.push_back(i);
            });
        }
        for (auto& thread : threads) thread.join();
    });
    EXPECT_EQ(order, (std::vector{4, 3, 2, 1}));
}

TEST(VirtualTime, TimedWait_AnswersLikeTheRealOneAtTheEdges) {
    const std::tuple<const char*, int64_t, long, int> cases[] = {
            {"past", 1, 0, ETIMEDOUT},
            {"before all time", -1, 0, ETIMEDOUT},
            {"too many nanoseconds", 5'000, 1'000'000'000, EINVAL},
            {"negative nanoseconds", 5'000, -1, EINVAL},
    };
    const sim::Outcome outcome = sim::run(firstCome(), [&] {
        std::mutex mutex;
        std::condition_variable condition;
        const std::lock_guard lock(mutex);
        for (const auto& [name, seconds, nanoseconds, expected] : cases) {
            const timespec deadline{seconds, nanoseconds};
            EXPECT_EQ(pthread_cond_clockwait(condition.native_handle(), mutex.native_handle(),
                                             CLOCK_MONOTONIC, &deadline),
                      expected)
                    << name;
        }
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
    EXPECT_EQ(outcome.endTimeNs, kStartNs);
}

TEST(VirtualTime, SpinningThread_LetsTheClockMove) {
    std::atomic<bool> ready{false};
    int64_t seenNs = 0;
    sim::run(firstCome(), [&] {
        std::thread sleeper([&] {
            sim::sleepFor(5'000'000);
            ready = true;
        });
        while (!ready) sched_yield();
        seenNs = sim::now();
        sleeper.join();
    });
    EXPECT_EQ(seenNs, kStartNs + 5'000'000);
}

TEST(VirtualTime, ThreadsThatOnlyYield_SeeEachOthersWrites) {
    std::atomic<int> turn{0};
    const auto play = [&turn](int me) {
        for (int round = 0; round < 100; ++round) {
            while (turn != me) sched_yield();
            turn = 1 - me;
        }
    };
    const sim::Outcome outcome = sim::run(firstCome(), [&] {
        std::thread other(play, 1);
        play(0);
        other.join();
    });
    EXPECT_TRUE(outcome.ok()) << outcome.report;
}

TEST(VirtualTime, CostOfCalls_IsChargedToTheClock) {
    sim::Options options = firstCome();
    options.cpuCostPerCallNs = 100;
    const sim::Outcome outcome = sim::run(options, [] {
        std::mutex mutex;
        for (int i = 0; i < 50; ++i) const std::lock_guard lock(mutex);
    });
    EXPECT_EQ(outcome.steps, 100u);
    EXPECT_EQ(outcome.endTimeNs, kStartNs + 100 * 100);
}

}  // namespace
