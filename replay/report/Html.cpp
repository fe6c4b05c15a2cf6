#include "replay/report/Html.h"

#include <nlohmann/json.hpp>

#include "replay/report/Utf8.h"

namespace replay {

namespace {

using nlohmann::json;

constexpr char kFirstPrintable = 0x20;
constexpr char kDelete = 0x7f;

void appendEscaped(std::string& result, char c) {
    switch (c) {
        case '<':
            result += "&lt;";
            return;
        case '>':
            result += "&gt;";
            return;
        case '&':
            result += "&amp;";
            return;
        case '"':
            result += "&quot;";
            return;
        case '\'':
            result += "&#39;";
            return;
        default:
            // Control characters are not allowed in a document. Parts of UTF-8 are negative only where
            // char has a sign.
            result += static_cast<unsigned char>(c) < kFirstPrintable || c == kDelete ? ' ' : c;
    }
}

}  // namespace

std::string escapeHtml(std::string_view text) {
    std::string result;
    for (const char c : asUtf8(text)) appendEscaped(result, c);
    return result;
}

std::string scriptJson(const json& value) {
    const std::string plain = value.dump(-1, ' ', true, json::error_handler_t::replace);
    std::string result;
    result.reserve(plain.size() + plain.size() / 64);
    for (const char c : plain) {
        if (c == '<') {  // only ever inside of strings
            result += "\\u003c";
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace replay
