#pragma once

// A hand on the threads that the library under measurement starts: which of them run at all. A
// measured call then meets the same state every time, and the state it needs is there in
// microseconds instead of a vsync period, as every timed wait of such a thread runs out at once.
//
// The program that links this defines pthread_create and the waits on conditions. Everything else
// is the C library's own.

namespace bench::threads {

inline constexpr int kEvery = -1;

// Of the threads that the library starts from now on only the nth runs (counted from 1; 0: none, or
// kEvery). The others end before their first instruction.
void runOnly(int nth);

int started();  // since then

// How often a library thread has gone to sleep without a deadline.
int idleCount();

}  // namespace bench::threads
