#pragma once

#include <type_traits>

#include "platform/SharedCell.h"

namespace android::cindral {

// A field that threads share without a lock, by design: every access is one relaxed load or store
// of this one variable, nothing orders it against others, and updates may be lost. The field keeps
// the size and alignment of its plain type.
//
// A read-modify-write is therefore written as what it is: field = field + 1.
template <typename T>
class UnlockedField {
    static_assert(std::is_trivially_copyable_v<T> && sizeof(T) <= sizeof(void*));

  public:
    constexpr UnlockedField(T value) : mCell(value) {}  // NOLINT(google-explicit-constructor)
    UnlockedField(const UnlockedField&) = delete;
    UnlockedField& operator=(const UnlockedField&) = delete;

    T load() const { return mCell.template load<__ATOMIC_RELAXED>(); }
    void store(T value) { mCell.template store<__ATOMIC_RELAXED>(value); }

    operator T() const { return load(); }  // NOLINT(google-explicit-constructor)
    UnlockedField& operator=(T value) {
        store(value);
        return *this;
    }

  private:
    SharedCell<T> mCell;
};

// A count that threads change without a lock, each change whole and in one order with all others.
class UnlockedCount {
  public:
    constexpr UnlockedCount() : mCell(0) {}

    operator int() const {  // NOLINT(google-explicit-constructor)
        return mCell.load<__ATOMIC_SEQ_CST>();
    }
    int operator++() { return mCell.add<__ATOMIC_SEQ_CST>(1); }
    int operator--() { return mCell.add<__ATOMIC_SEQ_CST>(-1); }

  private:
    SharedCell<int> mCell;
};

}  // namespace android::cindral
