#include "replay/capture/FileKind.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "replay/base/Text.h"
#include "replay/capture/FtraceLine.h"

namespace replay {

namespace {

constexpr std::string_view kGzip = "\x1f\x8b";
constexpr std::string_view kZstd = "\x28\xb5\x2f\xfd";
constexpr std::string_view kZip = "PK\x03\x04";
constexpr std::string_view kAtraceHeading = "TRACE:\n";
// atrace prints at most one line of its own before it.
constexpr size_t kMaxAtracePreambleBytes = 256;
// Every packet of a Perfetto trace begins with this: field 1, length-delimited.
constexpr char kPacketTag = '\x0a';

bool isPage(std::string_view bytes) {
    const size_t start = bytes.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return false;
    // Just any "<" would not do: ftrace text may begin with "<idle>-0".
    for (const char* opening : {"<!doctype", "<html", "<!--", "<head", "<script"}) {
        if (startsWithIgnoringCase(bytes.substr(start), opening)) return true;
    }
    return false;
}

// The tag is also a line break, with which a text may begin; but text has no control characters.
bool isPerfetto(std::string_view bytes) {
    if (bytes.empty() || bytes.front() != kPacketTag) return false;
    return std::any_of(bytes.begin(), bytes.end(), [](char c) {
        return std::iscntrl(static_cast<unsigned char>(c)) &&
               std::string_view("\t\n\r\x1b").find(c) == std::string_view::npos;
    });
}

bool isText(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, bytes.find('\n'));
        if (startsWith(line, "# tracer:") || parseFtraceLine(line)) return true;
        bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
    }
    return false;
}

}  // namespace

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

FileKind fileKindOf(std::string_view firstBytes) {
    if (startsWith(firstBytes, kGzip)) return FileKind::kGzip;
    if (startsWith(firstBytes, kZstd)) return FileKind::kZstd;
    if (startsWith(firstBytes, kZip)) return FileKind::kZip;
    if (packedAtraceStart(firstBytes) != std::string_view::npos) return FileKind::kPackedAtrace;
    if (isPage(firstBytes)) return FileKind::kPage;
    if (isPerfetto(firstBytes)) return FileKind::kPerfetto;
    return isText(firstBytes) ? FileKind::kText : FileKind::kOther;
}

}  // namespace replay
