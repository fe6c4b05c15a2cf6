#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>

#include "sim/Engine.h"

namespace sim {

// The memory of a processor on which a store reaches other threads late, for the cells that the
// program accesses through SharedCell.h; all other memory is as the machine's.
//
// Every cell keeps its last stores. A load returns one of them: the newest, or, as the strategy
// chooses, an older one, but none older than
//  - what the thread has read or stored there itself, or knows of: what a thread knows (its view) is
//    handed on by mutexes, by the creation and joining of threads, and by acquiring what another
//    has released; so each thread sees a cell's values in the order in which they were stored;
//  - what was stored Options::staleForNs ago, as every store comes through some time.
// Additions and sequentially consistent loads see the newest value.
//
// That is what C++ allows, except for two things: no load returns what is stored later, and a
// cell's values have the order of execution. A 64-bit Arm processor allows less: there no two
// threads that acquire can see two independent stores in different orders.
class WeakMemory {
  public:
    explicit WeakMemory(Engine& engine) : mEngine(engine) {}

    uint64_t load(const void* address, int bytes, int order);
    void store(void* address, int bytes, uint64_t value, int order);
    uint64_t add(void* address, int bytes, uint64_t summand, int order);
    // The cell is gone, and its place may be another's.
    void forget(const void* address) { mCells.erase(address); }

  private:
    struct Store {
        uint64_t value;
        int64_t timeNs;
        View released;  // what an acquiring reader learns
    };
    struct Cell {
        size_t id = 0;       // its place in a view
        uint32_t first = 0;  // the number of the oldest store that is kept
        std::deque<Store> stores;

        uint32_t newest() const { return first + static_cast<uint32_t>(stores.size()) - 1; }
    };

    void comeTo(const void* address);
    Cell& cellAt(const void* address, uint64_t value);
    uint32_t oldestVisible(const Cell& cell) const;
    void append(Cell& cell, uint64_t value, View released);

    Engine& mEngine;
    std::unordered_map<const void*, Cell> mCells;
    size_t mCellsEver = 0;
};

}  // namespace sim
