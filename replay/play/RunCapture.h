#pragma once

#include <string>
#include <vector>

#include "replay/capture/FtraceWriter.h"
#include "replay/play/Run.h"

namespace replay {

// What the tracing of a device would show of the run: the queue of the layer and the vsyncs.
std::vector<CounterSample> samplesOf(const Run& run, const std::string& layerCounter);

}  // namespace replay
