#include "replay/report/Column.h"

#include <string_view>

namespace replay {

namespace {

constexpr int kVarintBits = 7;
constexpr uint64_t kVarintMore = 0x80;
constexpr std::string_view kBase64 =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Small numbers of either sign become small numbers.
uint64_t zigzag(int64_t value) {
    return (static_cast<uint64_t>(value) << 1) ^ static_cast<uint64_t>(value >> 63);
}

}  // namespace

void Column::add(int64_t value) {
    uint64_t rest = zigzag(value - mPrevious);
    mPrevious = value;
    while (rest >= kVarintMore) {
        mBytes += static_cast<char>(rest | kVarintMore);
        rest >>= kVarintBits;
    }
    mBytes += static_cast<char>(rest);
}

std::string Column::text() const {
    std::string text;
    text.reserve(mBytes.size() / 3 * 4 + 4);
    for (size_t i = 0; i < mBytes.size(); i += 3) {
        const size_t count = std::min<size_t>(3, mBytes.size() - i);
        uint32_t group = 0;
        for (size_t n = 0; n < 3; ++n) {
            group = group << 8 | (n < count ? static_cast<uint8_t>(mBytes[i + n]) : 0u);
        }
        for (size_t n = 0; n < 4; ++n) {
            text += n <= count ? kBase64[group >> (18 - 6 * n) & 63] : '=';
        }
    }
    return text;
}

}  // namespace replay
