#include "replay/capture/Format.h"

#include "replay/capture/FtraceReader.h"
#include "replay/capture/HtmlReader.h"
#include "replay/capture/Inflate.h"
#include "replay/capture/PerfettoReader.h"
#include "replay/capture/Utf16Source.h"
#include "replay/capture/ZipReader.h"

namespace replay {

namespace {

// Those with a magic number come first: a text may begin with nearly anything.
constexpr const Format* kFormats[] = {&kGzipFormat,         &kZstdFormat,  &kZipFormat,
                                      &kPackedAtraceFormat, &kUtf16Format, &kPageFormat,
                                      &kPerfettoFormat,     &kFtraceFormat};

}  // namespace

const Format* formatOf(std::string_view firstBytes) {
    for (const Format* format : kFormats) {
        if (format->recognises(firstBytes)) return format;
    }
    return nullptr;
}

}  // namespace replay
