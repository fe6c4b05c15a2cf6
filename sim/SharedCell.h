#pragma once

// What stands in the place of platform/SharedCell.h in a build that explores, made with
// CINDRAL_EXPLORE: every access is a call of the simulation, at which threads may change and a load
// may get an older value (WeakMemory.h).

#include <cstdint>
#include <cstring>
#include <type_traits>

extern "C" {
// A cell of so many bytes, an order as the compiler numbers it (__ATOMIC_RELAXED and so on).
// Outside a run they access the memory as it is.
__attribute__((visibility("default"))) uint64_t simLoadCell(const void* cell, int bytes, int order,
                                                            bool leadsToObject);
__attribute__((visibility("default"))) void simStoreCell(void* cell, int bytes, uint64_t value,
                                                         int order);
__attribute__((visibility("default"))) uint64_t simAddToCell(void* cell, int bytes,
                                                             uint64_t summand, int order);
__attribute__((visibility("default"))) void simForgetCell(const void* cell);
// A reference to a counted object is given up; the last one was.
__attribute__((visibility("default"))) void simReleaseCount(const void* object);
__attribute__((visibility("default"))) void simAcquireCount(const void* object);
}

namespace sim {

template <typename T>
class SharedCell {
  public:
    constexpr explicit SharedCell(T value) : mValue(value) {}
    ~SharedCell() { simForgetCell(&mValue); }
    SharedCell(const SharedCell&) = delete;
    SharedCell& operator=(const SharedCell&) = delete;

    template <int kOrder>
    T load() const {
        return fromBits(simLoadCell(&mValue, sizeof(T), kOrder, std::is_pointer_v<T>));
    }
    template <int kOrder>
    void store(T value) {
        simStoreCell(&mValue, sizeof(T), toBits(value), kOrder);
    }
    template <int kOrder>
    T add(T summand) {
        return fromBits(simAddToCell(&mValue, sizeof(T), toBits(summand), kOrder));
    }

  private:
    static uint64_t toBits(T value) {
        uint64_t bits = 0;
        std::memcpy(&bits, &value, sizeof(T));
        return bits;
    }
    static T fromBits(uint64_t bits) {
        T value;
        std::memcpy(&value, &bits, sizeof(T));
        return value;
    }

    T mValue;  // the newest value
};

}  // namespace sim
