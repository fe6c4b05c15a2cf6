#include "replay/base/Text.h"

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>

namespace replay {

namespace {
constexpr size_t kMaxQuotedChars = 60;

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
}  // namespace

bool startsWithIgnoringCase(std::string_view text, std::string_view lower) {
    return text.size() >= lower.size() &&
           std::equal(lower.begin(), lower.end(), text.begin(), [](char wanted, char c) {
               return std::tolower(static_cast<unsigned char>(c)) == wanted;
           });
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

std::string inQuotes(std::string_view text) {
    std::string result = "\"";
    for (const char c : text.substr(0, kMaxQuotedChars)) {
        const auto byte = static_cast<unsigned char>(c);
        result += std::isprint(byte) ? std::string(1, c) : format("\\x%02x", byte);
    }
    return result + (text.size() > kMaxQuotedChars ? "...\"" : "\"");
}

std::string format(const char* pattern, ...) {
    va_list arguments;
    va_start(arguments, pattern);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, pattern, arguments);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    // The terminating null goes where the string keeps its own.
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    va_end(arguments);
    return text;
}

std::string msText(int64_t ns) {
    return format("%.3f ms", toMs(ns));
}

std::string alignedSeconds(int64_t timeNs) {
    constexpr int64_t kNsPerSecond = 1'000'000'000;
    const int64_t magnitude = timeNs < 0 ? -timeNs : timeNs;
    const std::string digits = format("%s%lld.%09lld", timeNs < 0 ? "-" : "",
                                      static_cast<long long>(magnitude / kNsPerSecond),
                                      static_cast<long long>(magnitude % kNsPerSecond));
    return format("%14s", digits.c_str());
}

std::string onOneLine(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace replay
