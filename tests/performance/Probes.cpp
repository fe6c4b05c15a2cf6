#include "tests/performance/Probes.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <signal.h>
#include <sys/prctl.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>

// The C library's own allocator, behind the functions that this program defines in its place.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<bool> gWatching{false};
std::mutex gLock;
std::vector<std::string> gAllocations;  // guarded by gLock
thread_local bool tInside = false;      // allocations of the bookkeeping itself

bool contains(const char* text, const char* part) {
    return text != nullptr && std::strstr(text, part) != nullptr;
}

// The library or the device, whichever is nearer to the allocation on the stack.
void attributeAllocation() {
    constexpr int kMostFrames = 64;
    void* frames[kMostFrames];
    const int count = backtrace(frames, kMostFrames);
    for (int i = 0; i < count; ++i) {
        Dl_info place{};
        if (dladdr(frames[i], &place) == 0) continue;
        if (contains(place.dli_fname, "libcindral-standin")) return;
        if (!contains(place.dli_fname, "libcindral.so")) continue;
        const std::lock_guard<std::mutex> guard(gLock);
        gAllocations.emplace_back(place.dli_sname != nullptr ? place.dli_sname
                                                             : "a local function");
        return;
    }
}

void noteAllocation() {
    if (!gWatching || tInside) return;
    tInside = true;
    attributeAllocation();
    tInside = false;
}

volatile char gSelector = 0;  // 1: the kernel reports system calls instead of serving them
volatile int gSystemCall = -1;

constexpr int kSetUserDispatch = 59;  // PR_SET_SYSCALL_USER_DISPATCH, which Debian's headers lack
constexpr unsigned long kOn = 1;

void onSystemCall(int, siginfo_t* info, void*) {
    gSelector = 0;  // before the return from here, which is a system call itself
    gSystemCall = info->si_syscall;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    noteAllocation();
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    noteAllocation();
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    noteAllocation();
    return __libc_realloc(memory, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    noteAllocation();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** memory, size_t alignment, size_t size) {
    noteAllocation();
    *memory = __libc_memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

}  // extern "C"

namespace probes {

void watchAllocations() {
    void* frame = nullptr;
    backtrace(&frame, 1);  // its first call allocates
    {
        const std::lock_guard<std::mutex> guard(gLock);
        gAllocations.clear();
    }
    gWatching = true;
}

std::vector<std::string> allocations() {
    gWatching = false;
    const std::lock_guard<std::mutex> guard(gLock);
    return gAllocations;
}

bool canWatchSystemCalls() {
    struct sigaction action {};
    action.sa_sigaction = onSystemCall;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGSYS, &action, nullptr);
    return prctl(kSetUserDispatch, kOn, 0UL, 0UL, &gSelector) == 0;
}

void armSystemCalls() {
    gSystemCall = -1;
    gSelector = 1;
}

std::vector<int> disarmSystemCalls() {
    gSelector = 0;
    if (gSystemCall < 0) return {};
    return {gSystemCall};
}

}  // namespace probes
