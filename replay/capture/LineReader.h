#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "replay/capture/ByteSource.h"

namespace replay {

// Cuts bytes into lines, in memory of fixed size.
class LineReader {
  public:
    struct Line {
        std::string_view text;   // without its line break; valid until the next line is asked for
        uint64_t number = 0;     // from 1
        bool isComplete = true;  // it ended with a line break, not with the text
        bool isTooLong = false;  // only its beginning is in `text`
        bool isEndless = false;  // its end was not even looked for
    };

    // The kernel's own limit for a marker is a page; a line far beyond that is no ftrace.
    static constexpr size_t kMaxLineBytes = 64 * 1024;
    // What is longer is no text at all.
    static constexpr size_t kMaxSkippedBytes = 64 * 1024 * 1024;

    // `bytes` must outlive this.
    explicit LineReader(ByteSource& bytes);

    // False at the end. Throws what the source throws.
    bool next(Line& line);

  private:
    bool refill();
    void skipLongLine(Line& line);

    ByteSource& mBytes;
    std::vector<char> mBuffer;
    size_t mStart = 0;  // of the line in hand
    size_t mEnd = 0;    // of what is in the buffer
    uint64_t mNumber = 0;
};

}  // namespace replay
