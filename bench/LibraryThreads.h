#pragma once

// A hand on the threads that the library under measurement starts: which of them run at all, and
// how long their timers last. A measured call then meets the same state every time, and the state
// it needs is there in microseconds instead of a vsync period.
//
// The program that links this defines pthread_create, the waits on conditions and the calls that ask
// for real-time scheduling, which the measured calls never reach. Everything else is the C library's
// own.

#include <cstdint>
#include <vector>

namespace bench::threads {

// Says of each of the next threads that the library starts whether it runs (true) or ends before
// its first instruction. Those after them run.
void letRun(std::vector<bool> decisions);

// Makes every timed wait of the library's threads run out at once.
void skipTimers(bool skip);

// Library threads started and not ended.
int running();

// The calling thread's number, in the order of their start since letRun; -1 of any other thread.
int current();

// How often a library thread has gone to sleep: without a deadline, and in all.
int idleCount();
int waitCount();

// One return of a library thread from a wait, with the waiting mutex held again.
struct Wait {
    int thread;        // as current() tells
    int64_t deadline;  // ns; 0 without one
    int64_t returned;  // ns
    bool timedOut;
};
// Told of every wait from now on, on the thread that waited; null ends it.
void observeWaits(void (*observer)(const Wait& wait));

// Lets the library's threads stay in the normal scheduling class.
void denyRealtime(bool deny);

}  // namespace bench::threads
