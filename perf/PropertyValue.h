#pragma once

#include <cstddef>
#include <sstream>
#include <string>

namespace android {

// The value of a system property as the client library hands it over: at most 91 characters and a
// NUL. The layout is the client library's own record and is returned by value across its interface.
struct PropertyValue {
    static constexpr size_t kSize = 92;

    char text[kSize];

    // Copies `source`, cut to 91 characters. A null pointer copies as an empty text.
    static PropertyValue copyOf(const char* source);

    // The leading decimal number, 0 without one. What atoi would say, but defined for every input.
    int toInt() const;

    // A switch is on only when its number is exactly 1.
    bool isOn() const { return toInt() == 1; }

    // Formatted extraction of the leading number into `target`. A text that does not begin with a
    // number leaves what a stream leaves: 0, or the old value where the text is blank.
    template <typename T>
    void extractTo(T& target) const noexcept {
        try {
            std::istringstream stream{std::string(text)};
            stream >> target;
        } catch (...) {
            // Out of memory: the old value stands, as for a blank text.
        }
    }
};

static_assert(sizeof(PropertyValue) == PropertyValue::kSize);

}  // namespace android
