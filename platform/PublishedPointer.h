#pragma once

#include <utils/StrongPointer.h>

namespace android::cindral {

// A strong pointer that its owner sets once, while other threads may already be asking whether it
// is there. They see either null or a fully constructed object, without a lock. The owner clears it
// only when no other thread can ask any more.
template <typename T>
class PublishedPointer {
  public:
    void publish(T* object) {
        mOwned = object;
        __atomic_store_n(&mVisible, object, __ATOMIC_RELEASE);
    }
    void clear() {
        __atomic_store_n(&mVisible, nullptr, __ATOMIC_RELEASE);
        mOwned.clear();
    }

    T* get() const { return __atomic_load_n(&mVisible, __ATOMIC_ACQUIRE); }

    // For the owner alone.
    sp<T>& owned() { return mOwned; }

  private:
    sp<T> mOwned;
    T* mVisible = nullptr;
};

}  // namespace android::cindral
