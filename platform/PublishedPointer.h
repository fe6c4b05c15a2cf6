#pragma once

#include <utils/StrongPointer.h>

#include "platform/SharedCell.h"

namespace android::cindral {

// A strong pointer that its owner sets once, while other threads may already be asking whether it
// is there. They see either null or a fully constructed object, without a lock. The owner clears it
// only when no other thread can ask any more.
template <typename T>
class PublishedPointer {
  public:
    void publish(T* object) {
        mOwned = object;
        mVisible.template store<__ATOMIC_RELEASE>(object);
    }
    void clear() {
        mVisible.template store<__ATOMIC_RELEASE>(nullptr);
        mOwned.clear();
    }

    T* get() const { return mVisible.template load<__ATOMIC_ACQUIRE>(); }

    // For the owner alone.
    sp<T>& owned() { return mOwned; }

  private:
    sp<T> mOwned;
    SharedCell<T*> mVisible{nullptr};
};

}  // namespace android::cindral
