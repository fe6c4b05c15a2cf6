#pragma once

#include <memory>

#include "replay/capture/ByteSource.h"
#include "replay/capture/Losses.h"

namespace replay {

// The ftrace text that a systrace page carries, without the page around it. Two forms are in use:
//
//   <script class="trace-data" type="application/text">   several blocks; those that hold
//   # tracer: nop                                         "# tracer:" are ftrace text, others are
//   ...                                                   lists of processes and the like
//   </script>
//
//   ... = "# tracer: nop\n\n...";         the oldest pages: one JavaScript string, quotes escaped,
//                                         each line ending in "\n", a backslash and a line break
//
// The page streams through in memory of fixed size. Both arguments must outlive the result, which
// throws InputError at the end of a page without a trace.
std::unique_ptr<ByteSource> openPage(ByteSource& page, ReadContext& context);

}  // namespace replay
