#include "perf/LayerName.h"

#include <algorithm>
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

}  // namespace

std::string packageNameOf(const std::string& layerName) {
    if (layerName.size() > kMaxRegexNameLength) return packageNameOfLongName(layerName);
    // Built anew on every call, deliberately: tracked and ignored layers never come here, and the
    // others too seldom for a state that outlives the call.
    const std::regex pattern(kLayerNamePattern);
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
