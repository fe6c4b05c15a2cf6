#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

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
// Of other memory only its order is watched: whoever loads a pointer knows of all that was done
// before it was stored, the construction of its object among it, and a cell is destroyed after all
// accesses. Whatever value it returns, an access without that order fails the run.
//
// That is what C++ allows, except for two things: no load returns what is stored later, and a
// cell's values have the order of execution. A 64-bit Arm processor allows less: there no two
// threads that acquire can see two independent stores in different orders.
class WeakMemory {
  public:
    explicit WeakMemory(Engine& engine) : mEngine(engine) {}

    uint64_t load(const void* address, int bytes, int order, bool leadsToObject);
    void store(void* address, int bytes, uint64_t value, int order);
    uint64_t add(void* address, int bytes, uint64_t summand, int order);
    // The cell is gone, and its place may be another's.
    void forget(const void* address);
    // A reference of a counted object is given up, or was the last one.
    void releaseCount(const void* object);
    void acquireCount(const void* object);

  private:
    struct Access {
        size_t thread = 0;  // the id of its accesses
        uint32_t number = 0;
    };
    struct Store {
        uint64_t value;
        int64_t timeNs;
        View released;  // what an acquiring reader learns
        Access access;
    };
    struct Cell {
        size_t id = 0;       // its place in a view
        uint32_t first = 0;  // the number of the oldest store that is kept
        std::deque<Store> stores;
        std::vector<Access> latest;  // of each thread

        uint32_t newest() const { return first + static_cast<uint32_t>(stores.size()) - 1; }
    };

    void comeTo(const void* address);
    Cell& cellAt(const void* address, uint64_t value);
    uint32_t oldestVisible(const Cell& cell) const;
    void append(Cell& cell, uint64_t value, View released, Access access);
    Access count(Cell& cell);
    bool isBefore(Access access) const;

    Engine& mEngine;
    std::unordered_map<const void*, Cell> mCells;
    std::unordered_map<const void*, View> mCounts;  // what those who gave references up knew
    size_t mLastId = 0;
};

}  // namespace sim
