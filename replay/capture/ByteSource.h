#pragma once

// Where a reader's bytes come from: a file, something that unpacks another source, or memory. Each
// source hands out its bytes once, in order, in pieces of any size, and belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace replay {

class ByteSource {
  public:
    ByteSource() = default;
    ByteSource(const ByteSource&) = delete;
    ByteSource& operator=(const ByteSource&) = delete;
    virtual ~ByteSource() = default;

    // Up to `size` bytes into `buffer`; 0 only at the end. Throws InputError.
    virtual size_t read(char* buffer, size_t size) = 0;
};

// Bytes in memory, which must outlive the source.
class MemorySource : public ByteSource {
  public:
    explicit MemorySource(std::string_view bytes) : mRest(bytes) {}
    size_t read(char* buffer, size_t size) override;

  private:
    std::string_view mRest;
};

// Lets a reader look at the bytes that come next before somebody else reads them.
class PeekedSource : public ByteSource {
  public:
    // `inner` must outlive this.
    explicit PeekedSource(ByteSource& inner) : mInner(inner) {}

    // The next `size` bytes, fewer only at the end. Valid until the next call.
    std::string_view peek(size_t size);
    void skip(size_t size);
    size_t read(char* buffer, size_t size) override;

  private:
    ByteSource& mInner;
    std::string mPeeked;
    size_t mUsed = 0;  // of mPeeked
};

// Keeps a stream from being read for ever, and a small file from unpacking to an endless one. One
// for a whole file, because packings may be nested.
class UnpackBudget {
  public:
    // The name is for the message.
    explicit UnpackBudget(std::string fileName) : mFileName(std::move(fileName)) {}

    // Throws InputError once more came in than a capture of two hours has.
    void addPacked(uint64_t bytes);

    // Throws InputError once far more came out than a trace can have been packed into.
    void addUnpacked(uint64_t bytes);

  private:
    const std::string mFileName;
    uint64_t mPackedBytes = 0;
    uint64_t mUnpackedBytes = 0;
};

}  // namespace replay
