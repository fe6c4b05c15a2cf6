#pragma once

#include <ostream>

#include "replay/findings/Findings.h"

namespace replay {

// Every switch of a regulator and every call of the performance service beside what caused it.
void writeDecisionLog(std::ostream& out, const Findings& findings);

}  // namespace replay
