#pragma once

// Words and figures for people.

#include <cstdint>
#include <string>

namespace replay {

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...);

inline double toMs(int64_t ns) {
    return static_cast<double>(ns) / 1e6;
}
inline double toSeconds(int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

std::string msText(int64_t ns);  // "16.667 ms"

// "-0.001000000": exact, and wide enough to stay aligned for a quarter of an hour.
std::string alignedSeconds(int64_t timeNs);

// Some of the library's texts end in a line break.
std::string onOneLine(const std::string& text);

}  // namespace replay
