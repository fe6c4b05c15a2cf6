#include "replay/capture/ByteSource.h"

#include <algorithm>
#include <cstring>

#include "replay/base/Error.h"

namespace replay {

namespace {

// Traces shrink to a twentieth, at best to a fiftieth; bombs to a thousandth and less.
constexpr uint64_t kMaxUnpackRatio = 200;
// Two hours of everything that a phone can trace.
constexpr uint64_t kMaxPackedBytes = uint64_t{16} << 30;
// What any file may unpack to, as very small ones tell nothing about the ratio.
constexpr uint64_t kFreeUnpackedBytes = 16 * 1024 * 1024;

}  // namespace

size_t MemorySource::read(char* buffer, size_t size) {
    const size_t count = std::min(size, mRest.size());
    if (count > 0) std::memcpy(buffer, mRest.data(), count);
    mRest.remove_prefix(count);
    return count;
}

std::string_view PeekedSource::peek(size_t size) {
    if (mPeeked.size() - mUsed < size) {
        mPeeked.erase(0, mUsed);
        mUsed = 0;
        size_t have = mPeeked.size();
        mPeeked.resize(size);
        while (have < size) {
            const size_t count = mInner.read(mPeeked.data() + have, size - have);
            if (count == 0) break;
            have += count;
        }
        mPeeked.resize(have);
    }
    return std::string_view(mPeeked).substr(mUsed, size);
}

void PeekedSource::skip(size_t size) {
    mUsed += peek(size).size();
}

size_t PeekedSource::read(char* buffer, size_t size) {
    if (mUsed == mPeeked.size()) return mInner.read(buffer, size);
    const size_t count = std::min(size, mPeeked.size() - mUsed);
    std::memcpy(buffer, mPeeked.data() + mUsed, count);
    mUsed += count;
    return count;
}

void UnpackBudget::addPacked(uint64_t bytes) {
    mPackedBytes += bytes;
    if (mPackedBytes <= kMaxPackedBytes) return;
    throw InputError(mFileName + ": more than " + std::to_string(kMaxPackedBytes >> 30) +
                     " GB; cut it to the part of interest, or end the stream");
}

void UnpackBudget::addUnpacked(uint64_t bytes) {
    mUnpackedBytes += bytes;
    if (mUnpackedBytes <= kFreeUnpackedBytes + kMaxUnpackRatio * mPackedBytes) return;
    throw InputError(mFileName + ": unpacks to more than " + std::to_string(kMaxUnpackRatio) +
                     " times its size, which no trace does; unpack it by hand if it is one");
}

}  // namespace replay
