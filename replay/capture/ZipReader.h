#pragma once

#include <memory>

#include "replay/capture/ByteSource.h"
#include "replay/capture/Format.h"
#include "replay/capture/Losses.h"

namespace replay {

// The first file in a zip that looks like a capture; others that do are noted as not read. Where
// the zip breaks off, the source ends and the loss is noted in `context`. Reads the zip as a
// stream, so that it may come through a pipe. Both arguments must outlive the result. Throws
// InputError if there is no capture in it.
std::unique_ptr<ByteSource> openZip(PeekedSource& zip, ReadContext& context);

extern const Format kZipFormat;

}  // namespace replay
