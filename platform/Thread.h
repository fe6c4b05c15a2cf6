#pragma once

#include <thread>
#include <utility>

namespace android::cindral {

// Starts `body` on `thread`, which must not be joinable. Returns false, with `thread` as it was,
// when the system has no thread or no memory for one.
template <typename Body>
bool tryStartThread(std::thread& thread, Body&& body) noexcept {
    try {
        thread = std::thread(std::forward<Body>(body));
        return true;
    } catch (...) {
        return false;
    }
}

// Names the thread (at most 15 characters) for whoever looks at it from outside.
void nameThread(std::thread& thread, const char* name);

// Moves the calling thread into the class that the library's own threads run in: nice -8,
// SCHED_FIFO at priority 1. Without the privilege for either, the thread goes on with what it has:
// being late is better than not being there.
void enterRealtimeScheduling();

}  // namespace android::cindral
