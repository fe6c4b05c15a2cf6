#pragma once

#include <string_view>

namespace replay {

// What the first bytes of a file say about it.
enum class FileKind {
    kGzip,
    kZstd,
    kZip,
    kPackedAtrace,  // "atrace -z": a line "TRACE:", then a zlib stream
    kPage,          // systrace HTML
    kPerfetto,      // protobuf
    kText,          // ftrace
    kOther,
};

// How many bytes it takes to tell.
constexpr size_t kFileKindBytes = 16 * 1024;

FileKind fileKindOf(std::string_view firstBytes);

// Where the zlib stream of kPackedAtrace begins.
size_t packedAtraceStart(std::string_view firstBytes);

}  // namespace replay
