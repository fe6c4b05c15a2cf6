#pragma once

// A hand on the threads that the library under measurement starts: which of them run at all, and
// how long their timers last. A measured call then meets the same state every time, and the state
// it needs is there in microseconds instead of a vsync period.
//
// The program that links this defines pthread_create, pthread_cond_wait and pthread_cond_timedwait,
// which the measured calls never reach. Everything else is the C library's own.

#include <vector>

namespace bench::threads {

// Says of each of the next threads that the library starts whether it runs (true) or ends before
// its first instruction. Those after them run.
void letRun(std::vector<bool> decisions);

// Makes every timed wait of the library's threads run out at once.
void skipTimers(bool skip);

// Library threads started and not ended.
int running();

// How often a library thread has gone to sleep: without a deadline, and in all.
int idleCount();
int waitCount();

}  // namespace bench::threads
