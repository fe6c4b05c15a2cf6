#include "replay/capture/Inflate.h"

#include <zlib.h>
#include <zstd.h>

#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr std::string_view kAtraceHeading = "TRACE:\n";
// atrace prints at most one line of its own before it.
constexpr size_t kMaxAtracePreambleBytes = 256;

constexpr size_t kPieceBytes = 64 * 1024;
// A stream may ask for a window of up to 2 GiB, which is memory; devices use far smaller ones.
constexpr int kMaxZstdWindowLog = 24;
constexpr int kWindowBits = 15 + 32;  // the largest window; zlib or gzip, as the stream says
constexpr Bytef kGzipStart = 0x1f;
constexpr char kCutOff[] = "its end is missing";

class ZlibSource : public InflateSource {
  public:
    ZlibSource(ByteSource& packed, UnpackBudget& budget)
          : mPacked(packed), mBudget(budget), mPiece(kPieceBytes) {
        if (inflateInit2(&mStream, kWindowBits) != Z_OK) throw std::bad_alloc();
    }
    ~ZlibSource() override { inflateEnd(&mStream); }

    size_t read(char* buffer, size_t size) override {
        mStream.next_out = reinterpret_cast<Bytef*>(buffer);
        mStream.avail_out = static_cast<uInt>(size);
        while (!mEnded && mStream.avail_out == size) step();
        const size_t count = size - mStream.avail_out;
        mBudget.addUnpacked(count);
        return count;
    }

  private:
    bool refill() {
        if (mStream.avail_in > 0) return true;
        mStream.next_in = reinterpret_cast<Bytef*>(mPiece.data());
        mStream.avail_in = static_cast<uInt>(mPacked.read(mPiece.data(), mPiece.size()));
        return mStream.avail_in > 0;
    }

    void step() {
        const bool starved = !refill();
        const int result = inflate(&mStream, Z_NO_FLUSH);
        if (result == Z_OK) return;
        if (result == Z_STREAM_END) {
            // Some tools pack in pieces, others pad what they wrote.
            mEnded = !refill() || *mStream.next_in != kGzipStart || inflateReset(&mStream) != Z_OK;
            return;
        }
        mEnded = true;
        if (starved) return fail(kCutOff);
        fail(mStream.msg != nullptr ? mStream.msg : "no zlib stream");
    }

    ByteSource& mPacked;
    UnpackBudget& mBudget;
    std::vector<char> mPiece;
    z_stream mStream = {};
    bool mEnded = false;
};

class ZstdSource : public InflateSource {
  public:
    ZstdSource(ByteSource& packed, UnpackBudget& budget)
          : mPacked(packed), mBudget(budget), mPiece(kPieceBytes), mStream(ZSTD_createDCtx()) {
        if (mStream == nullptr) throw std::bad_alloc();
        ZSTD_DCtx_setParameter(mStream.get(), ZSTD_d_windowLogMax, kMaxZstdWindowLog);
    }

    size_t read(char* buffer, size_t size) override {
        ZSTD_outBuffer out = {buffer, size, 0};
        while (!mEnded && out.pos == 0) step(out);
        mBudget.addUnpacked(out.pos);
        return out.pos;
    }

  private:
    void step(ZSTD_outBuffer& out) {
        if (mIn.pos == mIn.size)
            mIn = {mPiece.data(), mPacked.read(mPiece.data(), mPiece.size()), 0};
        const bool starved = mIn.size == 0;
        const size_t result = ZSTD_decompressStream(mStream.get(), &out, &mIn);
        if (ZSTD_isError(result)) {
            mEnded = true;
            return fail(ZSTD_getErrorName(result));
        }
        if (starved && out.pos == 0) {
            mEnded = true;
            if (mInFrame) fail(kCutOff);
        }
        // Several frames in a row are one stream.
        if (!starved) mInFrame = result != 0;
    }

    struct Free {
        void operator()(ZSTD_DCtx* stream) const { ZSTD_freeDCtx(stream); }
    };

    ByteSource& mPacked;
    UnpackBudget& mBudget;
    std::vector<char> mPiece;
    std::unique_ptr<ZSTD_DCtx, Free> mStream;
    ZSTD_inBuffer mIn = {};
    bool mInFrame = false;
    bool mEnded = false;
};

// Notes where a stream breaks off, and refuses one of which nothing comes out.
class Inflated : public ByteSource {
  public:
    Inflated(std::unique_ptr<InflateSource> inner, ReadContext& context)
          : mInner(std::move(inner)), mContext(context) {}

    size_t read(char* buffer, size_t size) override {
        const size_t count = mInner->read(buffer, size);
        mIsEmpty = mIsEmpty && count == 0;
        if (count > 0 || mInner->error().empty()) return count;
        if (mIsEmpty) throw InputError(mContext.name + ": cannot be unpacked: " + mInner->error());
        mContext.losses.noteCutOff("unpacking ended early, " + mInner->error());
        return 0;
    }

  private:
    std::unique_ptr<InflateSource> mInner;
    ReadContext& mContext;
    bool mIsEmpty = true;
};

std::unique_ptr<ByteSource> unpackZlib(PeekedSource& packed, ReadContext& context) {
    return std::make_unique<Inflated>(openZlib(packed, context.budget), context);
}

std::unique_ptr<ByteSource> unpackZstd(PeekedSource& packed, ReadContext& context) {
    return std::make_unique<Inflated>(openZstd(packed, context.budget), context);
}

bool isGzip(std::string_view firstBytes) {
    return startsWith(firstBytes, "\x1f\x8b");
}

bool isZstd(std::string_view firstBytes) {
    return startsWith(firstBytes, "\x28\xb5\x2f\xfd");
}

// Where the zlib stream begins; npos if it is none.
size_t packedAtraceStart(std::string_view firstBytes) {
    const size_t heading = firstBytes.substr(0, kMaxAtracePreambleBytes).find(kAtraceHeading);
    if (heading == std::string_view::npos) return std::string_view::npos;
    const std::string_view rest = firstBytes.substr(heading + kAtraceHeading.size());
    // The first two bytes of a zlib stream: the method, and a check of both.
    const bool isZlib =
            rest.size() >= 2 && rest[0] == '\x78' &&
            (static_cast<unsigned char>(rest[0]) * 256 + static_cast<unsigned char>(rest[1])) %
                            31 ==
                    0;
    return isZlib ? heading + kAtraceHeading.size() : std::string_view::npos;
}

bool isPackedAtrace(std::string_view firstBytes) {
    return packedAtraceStart(firstBytes) != std::string_view::npos;
}

std::unique_ptr<ByteSource> unpackAtrace(PeekedSource& packed, ReadContext& context) {
    packed.skip(packedAtraceStart(packed.peek(kFirstBytes)));
    return unpackZlib(packed, context);
}

}  // namespace

constexpr Format kGzipFormat = {isGzip, unpackZlib};
constexpr Format kZstdFormat = {isZstd, unpackZstd};
constexpr Format kPackedAtraceFormat = {isPackedAtrace, unpackAtrace};

std::unique_ptr<InflateSource> openZlib(ByteSource& packed, UnpackBudget& budget) {
    return std::make_unique<ZlibSource>(packed, budget);
}

std::unique_ptr<InflateSource> openZstd(ByteSource& packed, UnpackBudget& budget) {
    return std::make_unique<ZstdSource>(packed, budget);
}

}  // namespace replay
