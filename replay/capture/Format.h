#pragma once

// The forms in which captures come. Whoever reads one says itself what it recognises: a new form is
// a reader with a Format of its own, and one more line in Format.cpp.

#include <cstddef>
#include <memory>
#include <string_view>

#include "replay/capture/ByteSource.h"
#include "replay/capture/Losses.h"
#include "replay/capture/Marker.h"

namespace replay {

// One of the two functions is there. Both throw InputError.
struct Format {
    // Whether a file that begins like this is of this form.
    bool (*recognises)(std::string_view firstBytes);

    // Of a packing: what was packed, in whatever form that is. Both arguments must outlive it.
    std::unique_ptr<ByteSource> (*unpack)(PeekedSource& packed, ReadContext& context) = nullptr;

    // Of a capture: hands every userspace marker to `sink`.
    void (*read)(ByteSource& bytes, ReadContext& context, const MarkerSink& sink) = nullptr;
    bool hasCpusInTurn = false;  // markers come in order only within one CPU
};

// How many bytes it takes to tell.
constexpr size_t kFirstBytes = 16 * 1024;

// Null if no reader recognises it. Names and endings of files do not matter.
const Format* formatOf(std::string_view firstBytes);

}  // namespace replay
