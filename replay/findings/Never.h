#pragma once

// Why the library never did something in a run, which is what people ask first of a run in which
// nothing happens.

#include "replay/findings/Findings.h"

namespace replay {

// Fills in Findings::never. Needs everything else of the findings.
void addNever(Findings& findings, const Run& run);

}  // namespace replay
