#include "sim/WeakMemory.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "sim/Report.h"
#include "sim/Run.h"
#include "sim/SharedCell.h"
#include "sim/Unseen.h"

namespace sim {

namespace {

constexpr size_t kStoresKept = 7;

uint64_t read(const void* address, int bytes) {
    uint64_t value = 0;
    std::memcpy(&value, address, static_cast<size_t>(bytes));
    return value;
}

void write(void* address, int bytes, uint64_t value) {
    std::memcpy(address, &value, static_cast<size_t>(bytes));
}

bool acquires(int order) {
    return order != __ATOMIC_RELAXED && order != __ATOMIC_RELEASE;
}

bool releases(int order) {
    return order != __ATOMIC_RELAXED && order != __ATOMIC_ACQUIRE && order != __ATOMIC_CONSUME;
}

uint32_t& entry(View& view, size_t cell) {
    if (view.size() <= cell) view.resize(cell + 1);
    return view[cell];
}

}  // namespace

void learn(View& view, const View& other) {
    if (view.size() < other.size()) view.resize(other.size());
    for (size_t i = 0; i < other.size(); ++i) view[i] = std::max(view[i], other[i]);
}

uint64_t WeakMemory::load(const void* address, int bytes, int order, bool leadsToObject) {
    comeTo(address);
    const uint64_t value = read(address, bytes);
    if (mEngine.options().staleForNs == 0) return value;
    Cell& cell = cellAt(address, value);
    count(cell);
    View& view = mEngine.current().view;
    uint32_t& known = entry(view, cell.id);
    known = std::max(known, oldestVisible(cell));
    const size_t age =
            order == __ATOMIC_SEQ_CST ? 0 : mEngine.chooseAge(cell.newest() - known + 1, cell.id);
    known = cell.newest() - static_cast<uint32_t>(age);
    const Store& store = cell.stores[known - cell.first];
    if (acquires(order)) learn(view, store.released);
    if (leadsToObject && store.value != 0 && !isBefore(store.access)) {
        mEngine.fail(Failure::kUnorderedPointer,
                     nameOf(mEngine.current()) +
                             " loads a pointer without the order that makes its object visible");
    }
    return store.value;
}

void WeakMemory::store(void* address, int bytes, uint64_t value, int order) {
    comeTo(address);
    const uint64_t before = read(address, bytes);
    write(address, bytes, value);
    mEngine.progress();
    if (mEngine.options().staleForNs == 0) return;
    Cell& cell = cellAt(address, before);
    const Access access = count(cell);
    View& view = mEngine.current().view;
    entry(view, cell.id) = cell.newest() + 1;
    append(cell, value, releases(order) ? view : View{}, access);
}

uint64_t WeakMemory::add(void* address, int bytes, uint64_t summand, int order) {
    comeTo(address);
    const uint64_t before = read(address, bytes);
    write(address, bytes, before + summand);
    const uint64_t sum = read(address, bytes);  // of so many bytes
    mEngine.progress();
    if (mEngine.options().staleForNs == 0) return sum;
    Cell& cell = cellAt(address, before);
    const Access access = count(cell);
    View& view = mEngine.current().view;
    // Whoever acquires the sum also learns what the number added to was released with.
    View released = cell.stores.back().released;
    if (acquires(order)) learn(view, released);
    entry(view, cell.id) = cell.newest() + 1;
    if (releases(order)) learn(released, view);
    append(cell, sum, std::move(released), access);
    return sum;
}

void WeakMemory::forget(const void* address) {
    const auto found = mCells.find(address);
    if (found == mCells.end()) return;
    for (const Access access : found->second.latest) {
        if (isBefore(access)) continue;
        mEngine.fail(
                Failure::kUnorderedEnd,
                nameOf(mEngine.current()) +
                        " destroys a shared field without an order after its last use by another");
    }
    mCells.erase(found);
}

void WeakMemory::releaseCount(const void* object) {
    if (mEngine.options().staleForNs != 0) learn(mCounts[object], mEngine.current().view);
}

void WeakMemory::acquireCount(const void* object) {
    const auto found = mCounts.find(object);
    if (found == mCounts.end()) return;
    learn(mEngine.current().view, found->second);
    mCounts.erase(found);
}

WeakMemory::Access WeakMemory::count(Cell& cell) {
    Thread& thread = mEngine.current();
    if (thread.accesses == 0) thread.accesses = ++mLastId;
    const Access access{thread.accesses, ++entry(thread.view, thread.accesses)};
    for (Access& latest : cell.latest) {
        if (latest.thread != access.thread) continue;
        latest = access;
        return access;
    }
    cell.latest.push_back(access);
    return access;
}

// Whether it comes before what the current thread does next. One without a number was before the run.
bool WeakMemory::isBefore(Access access) const {
    return entry(mEngine.current().view, access.thread) >= access.number;
}

void WeakMemory::comeTo(const void* address) {
    mEngine.step(Call::kCell);
    if (mEngine.options().onUse) mEngine.options().onUse(address);
}

// A value that came into memory in another way is the first of a new cell.
WeakMemory::Cell& WeakMemory::cellAt(const void* address, uint64_t value) {
    Cell& cell = mCells[address];
    if (!cell.stores.empty() && cell.stores.back().value == value) return cell;
    cell = Cell{};
    cell.id = ++mLastId;
    cell.stores.push_back({value, mEngine.now(), {}, {}});
    return cell;
}

// By all threads: the stores before it have had a successor for long enough.
uint32_t WeakMemory::oldestVisible(const Cell& cell) const {
    uint32_t oldest = cell.newest();
    for (auto store = cell.stores.rbegin(); oldest > cell.first; ++store, --oldest) {
        if (mEngine.now() - store->timeNs >= mEngine.options().staleForNs) break;
    }
    return oldest;
}

void WeakMemory::append(Cell& cell, uint64_t value, View released, Access access) {
    cell.stores.push_back({value, mEngine.now(), std::move(released), access});
    if (cell.stores.size() <= kStoresKept) return;
    cell.stores.pop_front();
    ++cell.first;
}

}  // namespace sim

using sim::tSelf;

uint64_t simLoadCell(const void* cell, int bytes, int order, bool leadsToObject) {
    if (!tSelf) return sim::read(cell, bytes);
    const sim::Unseen unseen;
    return tSelf->run->memory.load(cell, bytes, order, leadsToObject);
}

void simStoreCell(void* cell, int bytes, uint64_t value, int order) {
    if (!tSelf) return sim::write(cell, bytes, value);
    const sim::Unseen unseen;
    tSelf->run->memory.store(cell, bytes, value, order);
}

uint64_t simAddToCell(void* cell, int bytes, uint64_t summand, int order) {
    if (tSelf) {
        const sim::Unseen unseen;
        return tSelf->run->memory.add(cell, bytes, summand, order);
    }
    sim::write(cell, bytes, sim::read(cell, bytes) + summand);
    return sim::read(cell, bytes);
}

void simForgetCell(const void* cell) {
    if (!tSelf) return;
    const sim::Unseen unseen;
    tSelf->run->memory.forget(cell);
}

void simReleaseCount(const void* object) {
    if (!tSelf) return;
    const sim::Unseen unseen;
    tSelf->run->memory.releaseCount(object);
}

void simAcquireCount(const void* object) {
    if (!tSelf) return;
    const sim::Unseen unseen;
    tSelf->run->memory.acquireCount(object);
}
