#include "perf/LayerName.h"

#include <algorithm>
#include <locale>
#include <regex>

namespace android::cindral {

namespace {

constexpr char kPrefix[] = "SurfaceView[";
constexpr size_t kPrefixLength = sizeof(kPrefix) - 1;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// In the pattern a dot stands for anything but these.
bool isLineEnd(char c) {
    return c == '\n' || c == '\r';
}

// Characters as the pattern needs them: compared as they are, and the digits as its only class. The
// standard traits answer by locale and bring the tables for that, a seventh of the whole library.
struct PlainTraits {
    using char_type = char;
    using string_type = std::string;
    using locale_type = std::locale;
    using char_class_type = unsigned;  // 0 for no class

    static size_t length(const char* text) { return std::char_traits<char>::length(text); }

    // What a matcher may ask for patterns that ignore case or collate, which this one does not.
    // GCOVR_EXCL_START: not asked by libstdc++, by others for every character
    char translate(char c) const { return c; }
    char translate_nocase(char c) const { return c; }
    template <typename Iterator>
    string_type transform(Iterator first, Iterator last) const {
        return {first, last};
    }
    template <typename Iterator>
    string_type transform_primary(Iterator first, Iterator last) const {
        return {first, last};
    }
    template <typename Iterator>
    string_type lookup_collatename(Iterator, Iterator) const {
        return {};
    }
    // GCOVR_EXCL_STOP

    template <typename Iterator>
    char_class_type lookup_classname(Iterator, Iterator, bool = false) const {
        return 1;
    }
    bool isctype(char c, char_class_type digits) const { return digits != 0 && isDigit(c); }
    // For counts and references back, of which the pattern has none.
    int value(char digit, int /*radix*/) const { return digit - '0'; }  // GCOVR_EXCL_LINE
    locale_type imbue(const locale_type& locale) { return locale; }
    locale_type getloc() const { return {}; }  // GCOVR_EXCL_LINE: the interface wants it
};

}  // namespace

std::string packageNameOf(const std::string& layerName) {
    if (layerName.size() > kMaxRegexNameLength) return packageNameOfLongName(layerName);
    // Built anew on every call: tracked and ignored layers never come here, and the others too seldom
    // for a state that outlives the call.
    const std::basic_regex<char, PlainTraits> pattern(kLayerNamePattern);
    std::smatch match;
    return std::regex_match(layerName, match, pattern) ? match[1].str() : std::string();
}

std::string packageNameOfLongName(const std::string& layerName) {
    if (layerName.compare(0, kPrefixLength, kPrefix) != 0) return {};

    const size_t sign = layerName.rfind('#');
    if (sign == std::string::npos || sign + 1 == layerName.size()) return {};
    const auto digits = layerName.begin() + static_cast<std::ptrdiff_t>(sign) + 1;
    if (!std::all_of(digits, layerName.end(), isDigit)) return {};

    // Only digits follow the last number sign, so a slash can only stand before it. Without a slash
    // the package is everything up to the number sign, line ends included.
    const size_t end = std::min(layerName.find('/', kPrefixLength), sign);
    if (end <= kPrefixLength) return {};
    const auto rest = layerName.begin() + static_cast<std::ptrdiff_t>(end);
    if (std::any_of(rest, digits, isLineEnd)) return {};
    return layerName.substr(kPrefixLength, end - kPrefixLength);
}

}  // namespace android::cindral
