#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <memory>
#include <unordered_map>

#include "sim/Engine.h"

namespace sim {

// Creation, end, joining and attributes of simulated threads. Results are those of the pthread (or
// system) function of the same purpose. All calls are for the current thread, except createBody.
//
// Every simulated thread begins joinable for real, whatever the program asked for. It is joined for
// real when the program joins it, and detached for real, if the program detached it, once it has
// ended.
class Threads {
  public:
    Threads(Engine& engine, Run& run) : mEngine(engine), mRun(run) {}

    // By the real caller of a run. Throws std::system_error.
    Thread& createBody(void* (*start)(void*), void* argument);
    // Joins what the program left unjoined, once all threads have ended. Null if nothing was left.
    const Thread* joinLeftovers();

    int create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*),
               void* argument);
    int join(pthread_t handle, void** result);
    int detach(pthread_t handle);

    // Null for threads that do not belong to the run.
    Thread* find(pthread_t handle) const;
    Thread* find(pid_t tid) const;  // 0 is the caller

  private:
    bool failsNow(int creation) const;
    int launch(std::unique_ptr<Thread> thread, const pthread_attr_t* attributes);
    int joinForReal(Thread& thread, void** result);
    Thread& joinable(pthread_t handle, const char* verb);

    Engine& mEngine;
    Run& mRun;
    std::unordered_map<pthread_t, Thread*> mByHandle;  // those that can still be joined or detached
    int mCreations = 0;
};

}  // namespace sim
