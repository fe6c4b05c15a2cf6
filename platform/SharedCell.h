#pragma once

#ifdef CINDRAL_EXPLORE
#include "sim/SharedCell.h"

namespace android::cindral {
using sim::SharedCell;
}
#else

namespace android::cindral {

// One variable that threads access without a lock, each access with an order of its own. Whatever
// threads share so goes through this class: a build that searches schedules puts another in its
// place, which lets the threads change at every access and an old value come late (sim/).
template <typename T>
class SharedCell {
  public:
    constexpr explicit SharedCell(T value) : mValue(value) {}

    template <int kOrder>
    T load() const {
        T value;
        __atomic_load(&mValue, &value, kOrder);
        return value;
    }
    template <int kOrder>
    void store(T value) {
        __atomic_store(&mValue, &value, kOrder);
    }
    // Returns the sum.
    template <int kOrder>
    T add(T summand) {
        return __atomic_add_fetch(&mValue, summand, kOrder);
    }

  private:
    T mValue;
};

}  // namespace android::cindral

#endif
