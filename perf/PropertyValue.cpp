#include "perf/PropertyValue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace android {

namespace {

constexpr char kBlanks[] = " \t\n\v\f\r";
constexpr char kDigits[] = "0123456789";
constexpr char kSigns[] = "+-";

const char* skip(const char* text, const char* characters) {
    return text + std::strspn(text, characters);
}

const char* skipSign(const char* text) {
    return *text != '\0' && std::strchr(kSigns, *text) != nullptr ? text + 1 : text;
}

// Behind the exponent that begins at `text`; `text` itself where none does.
const char* skipExponent(const char* text) {
    if (*text != 'e' && *text != 'E') return text;
    const char* const digits = skipSign(text + 1);
    const char* const end = skip(digits, kDigits);
    return end != digits ? end : text;
}

// The decimal number that `text` begins with: "0" where it begins with none, nothing for a blank
// text. Streams do not agree on where a number ends: libc++ takes the f of 0.6f for a digit, and knows
// nan, inf and hexadecimal.
std::string leadingNumber(const char* text) {
    const char* const begin = skip(text, kBlanks);
    if (*begin == '\0') return {};
    const char* const whole = skipSign(begin);
    const char* end = skip(whole, kDigits);
    bool hasDigits = end != whole;
    if (*end == '.') {
        const char* const fraction = end + 1;
        end = skip(fraction, kDigits);
        hasDigits = hasDigits || end != fraction;
    }
    if (!hasDigits) return "0";
    return {begin, skipExponent(end)};
}

template <typename T>
void extract(const char* text, T& target) noexcept {
    try {
        std::istringstream stream(leadingNumber(text));
        stream.imbue(std::locale::classic());
        stream >> target;
    } catch (...) {
        // Out of memory: the old value stands, as for a blank text.
    }
}

}  // namespace

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

void PropertyValue::extractTo(int& target) const noexcept {
    extract(text, target);
}

void PropertyValue::extractTo(bool& target) const noexcept {
    extract(text, target);
}

void PropertyValue::extractTo(float& target) const noexcept {
    extract(text, target);
    // libc++ makes an infinity of a number beyond the range.
    using Limits = std::numeric_limits<float>;
    target = std::clamp(target, Limits::lowest(), Limits::max());
}

}  // namespace android
