#include "replay/base/Error.h"

#include <cctype>
#include <cstdio>

namespace replay {

namespace {
constexpr size_t kMaxQuotedChars = 60;
}

std::string inQuotes(const std::string& text) {
    std::string result = "\"";
    for (size_t i = 0; i < text.size() && i < kMaxQuotedChars; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (std::isprint(byte)) {
            result += text[i];
        } else {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "\\x%02x", byte);
            result += escape;
        }
    }
    return result + (text.size() > kMaxQuotedChars ? "...\"" : "\"");
}

}  // namespace replay
