#pragma once

// Unpacks zlib, gzip and zstd streams: whole files and what is packed within them. libarchive would
// read such files as well, but drops up to a block of good bytes before the place where one is
// broken.

#include <memory>
#include <string>

#include "replay/capture/ByteSource.h"
#include "replay/capture/Format.h"

namespace replay {

// What a damaged stream still yields comes out first; then it ends, and error() says why.
class InflateSource : public ByteSource {
  public:
    // Empty while all is well.
    const std::string& error() const { return mError; }

  protected:
    void fail(const std::string& what) { mError = what; }

  private:
    std::string mError;
};

// `packed` and `budget` must outlive the result. Only its output is charged to the budget.
// openZlib takes gzip too, also several streams of it in a row.
std::unique_ptr<InflateSource> openZlib(ByteSource& packed, UnpackBudget& budget);
std::unique_ptr<InflateSource> openZstd(ByteSource& packed, UnpackBudget& budget);

extern const Format kGzipFormat;
extern const Format kZstdFormat;
extern const Format kPackedAtraceFormat;  // "atrace -z": a line "TRACE:", then a zlib stream

}  // namespace replay
