#include "replay/capture/LineReader.h"

#include <cstring>

namespace replay {

namespace {
// The system is asked for this many bytes at a time.
constexpr size_t kPieceBytes = 256 * 1024;
}  // namespace

LineReader::LineReader(ByteSource& bytes) : mBytes(bytes), mBuffer(kPieceBytes + kMaxLineBytes) {}

bool LineReader::next(Line& line) {
    line = {{}, ++mNumber, true, false};
    size_t searched = mStart;
    for (;;) {
        const char* start = mBuffer.data() + mStart;
        const void* found = std::memchr(mBuffer.data() + searched, '\n', mEnd - searched);
        if (found != nullptr) {
            line.text = {start, static_cast<size_t>(static_cast<const char*>(found) - start)};
            mStart += line.text.size() + 1;
            line.isTooLong = line.text.size() > kMaxLineBytes;
            return true;
        }
        if (mEnd - mStart > kMaxLineBytes) break;
        searched = mEnd - mStart;
        if (!refill()) {
            line.text = {mBuffer.data() + mStart, mEnd - mStart};
            line.isComplete = false;
            mStart = mEnd;
            return !line.text.empty();
        }
    }
    skipLongLine(line);
    return true;
}

// Moves the line in hand to the front; false at the end of the bytes.
bool LineReader::refill() {
    std::memmove(mBuffer.data(), mBuffer.data() + mStart, mEnd - mStart);
    mEnd -= mStart;
    mStart = 0;
    const size_t count = mBytes.read(mBuffer.data() + mEnd, mBuffer.size() - mEnd);
    mEnd += count;
    return count > 0;
}

// Keeps the beginning of the line at the front of the buffer and passes over the rest of it.
void LineReader::skipLongLine(Line& line) {
    std::memmove(mBuffer.data(), mBuffer.data() + mStart, kMaxLineBytes);
    line.text = {mBuffer.data(), kMaxLineBytes};
    line.isTooLong = true;
    for (size_t skipped = 0; !line.isEndless;) {
        mStart = mEnd = kMaxLineBytes;
        const size_t count = mBytes.read(mBuffer.data() + mEnd, mBuffer.size() - mEnd);
        if (count == 0) {
            line.isComplete = false;
            return;
        }
        mEnd += count;
        const void* found = std::memchr(mBuffer.data() + mStart, '\n', count);
        skipped += count;
        line.isEndless = skipped > kMaxSkippedBytes;
        if (found == nullptr) continue;
        mStart = static_cast<size_t>(static_cast<const char*>(found) - mBuffer.data()) + 1;
        return;
    }
}

}  // namespace replay
