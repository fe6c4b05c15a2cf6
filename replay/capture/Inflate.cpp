#include "replay/capture/Inflate.h"

#include <zlib.h>
#include <zstd.h>

#include <new>
#include <vector>

namespace replay {

namespace {

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

}  // namespace

std::unique_ptr<InflateSource> openZlib(ByteSource& packed, UnpackBudget& budget) {
    return std::make_unique<ZlibSource>(packed, budget);
}

std::unique_ptr<InflateSource> openZstd(ByteSource& packed, UnpackBudget& budget) {
    return std::make_unique<ZstdSource>(packed, budget);
}

}  // namespace replay
