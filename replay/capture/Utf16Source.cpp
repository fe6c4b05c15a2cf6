#include "replay/capture/Utf16Source.h"

#include <algorithm>
#include <cstring>

#include "replay/base/Text.h"
#include "replay/capture/FtraceReader.h"
#include "replay/capture/HtmlReader.h"

namespace replay {

namespace {

constexpr std::string_view kLittle = "\xff\xfe";
constexpr std::string_view kBig = "\xfe\xff";
constexpr size_t kPieceBytes = 64 * 1024;
constexpr size_t kUnitBytes = 2;
constexpr char kReplacement = '?';

class Utf16Source : public ByteSource {
  public:
    explicit Utf16Source(PeekedSource& bytes)
          : mBytes(bytes), mHigh(bytes.peek(kUnitBytes) == kBig ? 0 : 1) {
        mBytes.skip(kUnitBytes);
    }

    size_t read(char* buffer, size_t size) override {
        if (mUsed == mText.size()) refill();
        const size_t count = std::min(size, mText.size() - mUsed);
        std::memcpy(buffer, mText.data() + mUsed, count);
        mUsed += count;
        return count;
    }

  private:
    void refill() {
        const std::string_view piece = mBytes.peek(kPieceBytes);
        mText.clear();
        mUsed = 0;
        for (size_t i = 0; i + 1 < piece.size(); i += kUnitBytes) {
            append(static_cast<unsigned char>(piece[i + mHigh]),
                   static_cast<unsigned char>(piece[i + 1 - mHigh]));
        }
        mBytes.skip(kPieceBytes);
    }

    void append(unsigned high, unsigned low) {
        const unsigned unit = high << 8 | low;
        const auto add = [&](unsigned byte) { mText += static_cast<char>(byte); };
        if (unit < 0x80) {
            add(unit);
        } else if (unit < 0x800) {
            add(0xc0 | unit >> 6);
            add(0x80 | (unit & 0x3f));
        } else if (unit >= 0xd800 && unit < 0xe000) {
            add(kReplacement);  // half of a character beyond the first 65536, which no name needs
        } else {
            add(0xe0 | unit >> 12);
            add(0x80 | (unit >> 6 & 0x3f));
            add(0x80 | (unit & 0x3f));
        }
    }

    PeekedSource& mBytes;
    const size_t mHigh;  // which byte of a unit comes with more weight
    std::string mText;
    size_t mUsed = 0;
};

// What a capture begins with is the same without every second byte.
bool isUtf16(std::string_view bytes) {
    if (!startsWith(bytes, kLittle) && !startsWith(bytes, kBig)) return false;
    std::string narrow(bytes.substr(kUnitBytes));
    narrow.erase(std::remove(narrow.begin(), narrow.end(), '\0'), narrow.end());
    return kFtraceFormat.recognises(narrow) || kPageFormat.recognises(narrow);
}

std::unique_ptr<ByteSource> unpackUtf16(PeekedSource& bytes, ReadContext&) {
    return std::make_unique<Utf16Source>(bytes);
}

}  // namespace

constexpr Format kUtf16Format = {isUtf16, unpackUtf16};

}  // namespace replay
