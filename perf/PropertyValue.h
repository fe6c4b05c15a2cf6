#pragma once

#include <cstddef>

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

    // What a string stream makes of the leading decimal number, whatever the standard library and the
    // locale: numbers beyond the type become its nearest end, for a bool true. A text that does not
    // begin with a number is 0; a blank one, or no memory to read it, leaves the target as it was.
    void extractTo(int& target) const noexcept;
    void extractTo(bool& target) const noexcept;
    void extractTo(float& target) const noexcept;
};

static_assert(sizeof(PropertyValue) == PropertyValue::kSize);

}  // namespace android
