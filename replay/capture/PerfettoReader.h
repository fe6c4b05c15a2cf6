#pragma once

#include "replay/capture/ByteSource.h"
#include "replay/capture/Format.h"
#include "replay/capture/Losses.h"
#include "replay/capture/Marker.h"

namespace replay {

// Reads a Perfetto trace packet by packet, packed ones too, and hands every userspace marker to
// `sink`. Within one CPU they come in order, but the CPUs take turns. Memory use depends on the
// largest packet, not on the length of the trace. A damaged packet is skipped and noted as a loss;
// what follows a place where packets cannot be told apart is lost. Throws InputError if most are
// damaged.
void readPerfetto(ByteSource& trace, ReadContext& context, const MarkerSink& sink);

extern const Format kPerfettoFormat;

}  // namespace replay
