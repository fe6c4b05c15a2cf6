#include "perf/PropertyValue.h"

#include <cstdlib>
#include <cstring>

namespace android {

PropertyValue PropertyValue::copyOf(const char* source) {
    PropertyValue value{};
    if (source != nullptr) {
        std::memcpy(value.text, source, strnlen(source, kSize - 1));
    }
    return value;
}

int PropertyValue::toInt() const {
    // strtol saturates where atoi is undefined; the cut to int is how the platform's atoi
    // continues.
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

}  // namespace android
