#pragma once

// Texts: what the readers take apart and what people are shown. One home for every helper that
// knows only text.

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace replay {

inline bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}
inline bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}
// `lower` is in lower case.
bool startsWithIgnoringCase(std::string_view text, std::string_view lower);

// Without blanks and line ends on either side.
std::string_view trimmed(std::string_view text);

// True if the whole text is a number of the type.
template <typename Number>
bool toNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// For use inside a one-line message: unprintable bytes escaped, cut at a readable length.
std::string inQuotes(std::string_view text);

// Some of the library's texts end in a line break.
std::string onOneLine(const std::string& text);

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...);

inline double toMs(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}
inline double toSeconds(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}
inline double toHertz(int64_t periodNs) {
    return 1e9 / static_cast<double>(periodNs);
}

std::string msText(int64_t ns);  // "16.667 ms"

// "-0.001000000": exact, and wide enough to stay aligned for a quarter of an hour.
std::string alignedSeconds(int64_t timeNs);

}  // namespace replay
