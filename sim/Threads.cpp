#include "sim/Threads.h"

#include <errno.h>
#include <limits.h>

#include <system_error>
#include <utility>

#include "sim/RealCalls.h"
#include "sim/Report.h"
#include "sim/Run.h"
#include "sim/Unseen.h"

namespace sim {

namespace {

// The destructors of thread-specific data come after those of thread_local objects, so the turn is
// given up in one of them. Not in the very first round, which belongs to the program's own keys,
// nor in the last, after which a sanitizer has taken the thread's state down.
constexpr int kLastDestructorRound = PTHREAD_DESTRUCTOR_ITERATIONS - 1;

void endThread(void* value);

pthread_key_t endKey() {
    static const pthread_key_t sKey = [] {
        pthread_key_t key{};
        const int error = pthread_key_create(&key, endThread);
        if (error != 0) throw std::system_error(error, std::generic_category(), "sim: thread key");
        return key;
    }();
    return sKey;
}

void endThread(void* value) {
    auto& thread = *static_cast<Thread*>(value);
    if (++thread.destructorRounds < kLastDestructorRound) {
        pthread_setspecific(endKey(), value);
        return;
    }
    const Unseen unseen;
    tSelf = nullptr;
    thread.run->engine.end();
}

void* beginThread(void* argument) {
    auto& thread = *static_cast<Thread*>(argument);
    {
        const Unseen unseen;
        const pid_t tid = real::gettid();
        thread.loan.give();
        thread.tid = tid;
        tSelf = &thread;
        pthread_setspecific(endKey(), &thread);
        thread.run->engine.begin();
    }
    return thread.start(thread.argument);
}

// Detaching is modelled, and a scheduling class is recorded instead of asked for.
void moveIntoRecord(pthread_attr_t& attributes, Thread& thread) {
    int detachState = PTHREAD_CREATE_JOINABLE;
    pthread_attr_getdetachstate(&attributes, &detachState);
    thread.detached = detachState == PTHREAD_CREATE_DETACHED;
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
    int inherit = PTHREAD_INHERIT_SCHED;
    pthread_attr_getinheritsched(&attributes, &inherit);
    if (inherit == PTHREAD_INHERIT_SCHED) return;
    sched_param parameters{};
    pthread_attr_getschedparam(&attributes, &parameters);
    pthread_attr_getschedpolicy(&attributes, &thread.record.policy);
    thread.record.priority = parameters.sched_priority;
    pthread_attr_setinheritsched(&attributes, PTHREAD_INHERIT_SCHED);
}

}  // namespace

Thread& Threads::createBody(void* (*start)(void*), void* argument) {
    endKey();
    auto body = std::make_unique<Thread>();
    Thread& thread = *body;
    thread.start = start;
    thread.argument = argument;
    thread.detached = true;
    const int error = launch(std::move(body), nullptr);
    if (error != 0) throw std::system_error(error, std::generic_category(), "sim: body thread");
    return thread;
}

int Threads::create(pthread_t* handle, const pthread_attr_t* attributes, void* (*start)(void*),
                    void* argument) {
    mEngine.step(Call::kCreate);
    if (failsNow(++mCreations)) return EAGAIN;
    auto thread = std::make_unique<Thread>();
    Thread& created = *thread;
    created.start = start;
    created.argument = argument;
    created.record = mEngine.current().record;  // as the kernel does
    created.record.name.clear();                // but in a report a name shall belong to one thread
    created.view = mEngine.current().view;
    const int error = launch(std::move(thread), attributes);
    if (error != 0) return error;
    *handle = created.handle;
    mEngine.progress();
    return 0;
}

bool Threads::failsNow(int creation) const {
    const Options& options = mEngine.options();
    if (options.failThreadCreation == 0) return false;
    return options.failLaterThreadCreations ? creation >= options.failThreadCreation
                                            : creation == options.failThreadCreation;
}

int Threads::launch(std::unique_ptr<Thread> thread, const pthread_attr_t* attributes) {
    thread->run = &mRun;
    pthread_attr_t copy;  // a plain copy is enough: the original outlives the call
    if (attributes) {
        copy = *attributes;
        moveIntoRecord(copy, *thread);
    }
    const int error =
            real::create(&thread->handle, attributes ? &copy : nullptr, beginThread, thread.get());
    if (error != 0) return error;
    Thread& admitted = mEngine.admit(std::move(thread));
    if (!admitted.detached) mByHandle[admitted.handle] = &admitted;
    return 0;
}

int Threads::join(pthread_t handle, void** result) {
    mEngine.step(Call::kJoin);
    Thread& thread = joinable(handle, "joins");
    if (!thread.joiners.empty()) mEngine.misuse("joins " + nameOf(thread) + ", as another does");
    if (!thread.ended) {
        mEngine.block({WaitKind::kJoin, thread.record.id, kNever, &thread.joiners});
    }
    const int error = joinForReal(thread, result);
    mEngine.progress();
    return error;
}

int Threads::detach(pthread_t handle) {
    mEngine.step(Call::kDetach);
    Thread& thread = joinable(handle, "detaches");
    thread.detached = true;
    mByHandle.erase(handle);
    if (thread.ended) {
        thread.joined = true;
        real::detach(handle);
    }
    mEngine.progress();
    return 0;
}

int Threads::joinForReal(Thread& thread, void** result) {
    mByHandle.erase(thread.handle);
    thread.joined = true;
    learn(mEngine.current().view, thread.view);
    return real::join(thread.handle, result);
}

Thread& Threads::joinable(pthread_t handle, const char* verb) {
    const auto found = mByHandle.find(handle);
    if (found != mByHandle.end()) return *found->second;
    mEngine.misuse(std::string(verb) +
                   " a thread that was joined or detached before, or is not one of the run");
}

const Thread* Threads::joinLeftovers() {
    const Thread* first = nullptr;
    for (const auto& thread : mEngine.threads()) {
        if (thread->joined) continue;
        if (!first) first = thread.get();
        real::join(thread->handle, nullptr);
    }
    return first;
}

Thread* Threads::find(pthread_t handle) const {
    for (const auto& thread : mEngine.threads()) {
        if (!thread->joined && pthread_equal(thread->handle, handle)) return thread.get();
    }
    return nullptr;
}

Thread* Threads::find(pid_t tid) const {
    if (tid == 0) return &mEngine.current();
    for (const auto& thread : mEngine.threads()) {
        if (!thread->ended && thread->tid == tid) return thread.get();
    }
    return nullptr;
}

}  // namespace sim
