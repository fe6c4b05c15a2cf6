#pragma once

#include <type_traits>

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
    constexpr UnlockedField(T value) : mValue(value) {}  // NOLINT(google-explicit-constructor)
    UnlockedField(const UnlockedField&) = delete;
    UnlockedField& operator=(const UnlockedField&) = delete;

    T load() const {
        T value;
        __atomic_load(&mValue, &value, __ATOMIC_RELAXED);
        return value;
    }
    void store(T value) { __atomic_store(&mValue, &value, __ATOMIC_RELAXED); }

    operator T() const { return load(); }  // NOLINT(google-explicit-constructor)
    UnlockedField& operator=(T value) {
        store(value);
        return *this;
    }

  private:
    T mValue;
};

}  // namespace android::cindral
