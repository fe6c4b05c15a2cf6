#include "tests/reliability/Memory.h"

#include <link.h>
#include <unwind.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "sim/Unseen.h"
#include "tests/reliability/Violation.h"

extern "C" void __asan_init() __attribute__((weak));  // null without the address sanitizer

namespace reliability {

namespace {

// Freed memory is filled with this, and kept for so many further deletions. The library's long-lived
// objects are of these sizes; the many small blocks would push them out.
constexpr unsigned char kFreed = 0xDD;
constexpr size_t kKept = 2048;
constexpr size_t kSmallestKept = 64;
constexpr size_t kLargestKept = 4096;
// The sanitizers know freed memory by themselves, once they have it.
bool keepsFreed() {
    return __asan_init == nullptr && !sim::isUnderThreadSanitizer();
}

// Stands before every block.
struct alignas(std::max_align_t) Header {
    size_t size;
    bool librarys;

    unsigned char* block() { return reinterpret_cast<unsigned char*>(this + 1); }
    static Header& of(void* block) { return static_cast<Header*>(block)[-1]; }
};

std::atomic<int64_t> gLive{0};
std::atomic<int64_t> gLibrarysLive{0};
std::atomic<int64_t> gCounted{0};
Shortage gShortage;

class FreedBlocks {
  public:
    // Takes a block and returns the one whose time has come, or null.
    void* exchange(void* block) {
        while (mBusy.test_and_set(std::memory_order_acquire)) {
        }
        void*& place = mBlocks[mNext++ % kKept];
        void* const oldest = place;
        place = block;
        mBusy.clear(std::memory_order_release);
        return oldest;
    }

  private:
    std::atomic_flag mBusy = ATOMIC_FLAG_INIT;
    size_t mNext = 0;
    void* mBlocks[kKept] = {};
};

FreedBlocks gFreed;

bool isUntouched(Header& freed) {
    const unsigned char* const bytes = freed.block();
    return bytes[0] == kFreed && std::memcmp(bytes, bytes + 1, freed.size - 1) == 0;
}

void release(void* block) {
    if (block == nullptr) return;
    Header& header = Header::of(block);
    gLive.fetch_sub(1, std::memory_order_relaxed);
    if (header.librarys) gLibrarysLive.fetch_sub(1, std::memory_order_relaxed);
    if (header.size < kSmallestKept || header.size > kLargestKept) return std::free(&header);
    if (!keepsFreed()) return std::free(&header);
    std::memset(block, kFreed, header.size);
    void* const oldest = gFreed.exchange(&header);
    if (oldest == nullptr) return;
    if (!isUntouched(*static_cast<Header*>(oldest)))
        violate("no-use-after-free", "freed memory was written to");
    std::free(oldest);
}

enum class Origin { kLibrary, kProgram, kUnknown };

Origin originOf(uintptr_t pc) {
    if (gShortage.library.has(pc)) return Origin::kLibrary;
    const bool others = gShortage.program.has(pc) || gShortage.device.has(pc);
    return others ? Origin::kProgram : Origin::kUnknown;
}

struct Search {
    uintptr_t caller;
    bool reached = false;
    Origin origin = Origin::kUnknown;
};

_Unwind_Reason_Code look(_Unwind_Context* context, void* argument) {
    auto& search = *static_cast<Search*>(argument);
    const uintptr_t pc = _Unwind_GetIP(context);
    if (pc == search.caller) search.reached = true;
    if (search.reached) search.origin = originOf(pc);
    return search.origin == Origin::kUnknown ? _URC_NO_REASON : _URC_END_OF_STACK;
}

// In the standard library, whoever called it decides. The frames of this file stand in the program,
// so the look begins at the caller.
bool isLibrarys(const void* caller) {
    Origin origin = originOf(reinterpret_cast<uintptr_t>(caller));
    if (origin != Origin::kUnknown) return origin == Origin::kLibrary;
    Search search{reinterpret_cast<uintptr_t>(caller)};
    _Unwind_Backtrace(look, &search);
    return search.origin == Origin::kLibrary;
}

bool runsOut() {
    const int64_t count = gCounted.fetch_add(1, std::memory_order_relaxed) + 1;
    if (gShortage.nth == 0) return false;
    return gShortage.lasting ? count >= gShortage.nth : count == gShortage.nth;
}

void* allocate(size_t size, const void* caller) {
    const bool librarys = gShortage.library.end != 0 && isLibrarys(caller);
    if (librarys && runsOut()) return nullptr;
    void* const memory = std::malloc(sizeof(Header) + size);
    if (memory == nullptr) return nullptr;
    gLive.fetch_add(1, std::memory_order_relaxed);
    if (librarys) gLibrarysLive.fetch_add(1, std::memory_order_relaxed);
    return (new (memory) Header{size, librarys})->block();
}

void* allocateOrThrow(size_t size, const void* caller) {
    if (void* const block = allocate(size, caller)) return block;
    throw std::bad_alloc();
}

}  // namespace

Code codeAround(const void* address) {
    struct {
        uintptr_t address;
        Code code;
    } search{reinterpret_cast<uintptr_t>(address), {}};
    const auto look = [](dl_phdr_info* object, size_t, void* argument) {
        auto& wanted = *static_cast<decltype(search)*>(argument);
        for (int i = 0; i < object->dlpi_phnum; ++i) {
            const auto& part = object->dlpi_phdr[i];
            const Code code{object->dlpi_addr + part.p_vaddr,
                            object->dlpi_addr + part.p_vaddr + part.p_memsz};
            if (part.p_type != PT_LOAD || !code.has(wanted.address)) continue;
            wanted.code = code;
            return 1;
        }
        return 0;
    };
    dl_iterate_phdr(look, &search);
    return search.code;
}

int64_t liveBlocks() {
    return gLive.load(std::memory_order_relaxed);
}

int64_t librarysLiveBlocks() {
    return gLibrarysLive.load(std::memory_order_relaxed);
}

bool looksFreed(const void* address) {
    constexpr size_t kEnough = 16;
    const auto* bytes = static_cast<const unsigned char*>(address);
    return bytes[0] == kFreed && std::memcmp(bytes, bytes + 1, kEnough - 1) == 0;
}

void setShortage(const Shortage& shortage) {
    gShortage = shortage;
    gCounted = 0;
}

int64_t countedAllocations() {
    return gCounted;
}

}  // namespace reliability

using namespace reliability;

void* operator new(size_t size) {
    return allocateOrThrow(size, __builtin_return_address(0));
}
void* operator new[](size_t size) {
    return allocateOrThrow(size, __builtin_return_address(0));
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, __builtin_return_address(0));
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    return allocate(size, __builtin_return_address(0));
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, size_t) noexcept {
    release(block);
}
void operator delete[](void* block, size_t) noexcept {
    release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    release(block);
}
