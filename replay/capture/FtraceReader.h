#pragma once

#include "replay/capture/ByteSource.h"
#include "replay/capture/Format.h"
#include "replay/capture/FtraceLine.h"
#include "replay/capture/Losses.h"
#include "replay/capture/Marker.h"

namespace replay {

// Reads ftrace text: what atrace prints, trace_pipe delivers and a systrace page carries. Hands
// every userspace marker to `sink` in the order of the text. Memory use does not depend on the
// length of the text. A line that does not parse is skipped and noted as a loss; throws InputError,
// "name:line: ...", if that happens to most of them.
void readFtrace(ByteSource& text, ReadContext& context, const MarkerSink& sink);

extern const Format kFtraceFormat;

}  // namespace replay
