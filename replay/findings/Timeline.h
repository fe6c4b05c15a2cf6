#pragma once

#include <ostream>

#include "replay/play/Run.h"

namespace replay {

// Everything that went into the library and everything it did, one line each in time order:
// seconds since the first event of the capture, thread, what.
void writeTimeline(std::ostream& out, const Run& run);

}  // namespace replay
