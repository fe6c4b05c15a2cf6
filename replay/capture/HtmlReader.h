#pragma once

#include "replay/capture/ByteSource.h"
#include "replay/capture/Format.h"
#include "replay/capture/Losses.h"
#include "replay/capture/Marker.h"

namespace replay {

// Reads the ftrace text that a systrace page carries. Two forms are in use:
//
//   <script class="trace-data" type="application/text">   several blocks; those that hold
//   # tracer: nop                                         "# tracer:" are ftrace text, others are
//   ...                                                   lists of processes and the like
//   </script>
//
//   ... = "# tracer: nop\n\n...";         the oldest pages: one JavaScript string, quotes escaped,
//                                         each line ending in "\n", a backslash and a line break
//
// The page streams through in memory of fixed size. Losses are told by the lines of the text, not
// of the page. Throws InputError at the end of a page without a trace.
void readPage(ByteSource& page, ReadContext& context, const MarkerSink& sink);

extern const Format kPageFormat;

}  // namespace replay
