#pragma once

#include "replay/program/CommandLine.h"

namespace replay {

// Nothing is destroyed: refuses outputs that are an input under whatever name or link, two outputs
// of one name, and, without --force, to overwrite what is none of this program's outputs. Throws
// InputError before anything is done.
void requireSafeOutputs(const CommandLine& line);

}  // namespace replay
