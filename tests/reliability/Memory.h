#pragma once

// The program's operator new and delete, which every library it loads uses too: they count what is
// alive, can run out of memory at a chosen allocation of the library under test, and make freed
// memory unusable, so that whoever touches it is seen.

#include <cstddef>
#include <cstdint>

namespace reliability {

// Blocks that are alive now, whoever asked for them.
int64_t liveBlocks();
// Those of the library, as far as setShortage() has said where it is.
int64_t librarysLiveBlocks();

// Whether the memory at `address` has been given back. A guess: by what freed memory is filled with.
bool looksFreed(const void* address);

// The code of a loaded object.
struct Code {
    uintptr_t begin = 0;
    uintptr_t end = 0;

    bool has(uintptr_t address) const { return address >= begin && address < end; }
};
// Of the object that `address` stands in.
Code codeAround(const void* address);

// From now on allocations by the library's code, or by the standard library on its behalf, are
// counted, and the `nth` fails (0: none), and those after it too if so wanted. What the library
// makes the program and the device allocate is left alone.
struct Shortage {
    Code library;
    Code program;
    Code device;
    int64_t nth = 0;
    bool lasting = false;
};
void setShortage(const Shortage& shortage);
// How many were counted since then.
int64_t countedAllocations();

}  // namespace reliability
