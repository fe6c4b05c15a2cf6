#pragma once

// The findings as single numbers with a name each: what is compared, and what a fleet's data holds.
// One table, so that nothing is compared that is not in the data, and the other way round.

#include <cstddef>
#include <string>
#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

struct Figure {
    enum class Better { kLess, kMore, kNeither };

    const char* name;   // with its unit: "frame_time_p99_ms"
    const char* label;  // for people
    const char* unit;   // "", "ms", "s" or "%"
    Better better;
    // Not a number if it is not known.
    double (*of)(const Findings& findings);

    bool isCount() const { return unit[0] == '\0'; }
};

const std::vector<Figure>& figures();

// The index of the figure with the name, which must exist.
size_t figureNamed(const std::string& name);

// By figures().
std::vector<double> valuesOf(const Findings& findings);

}  // namespace replay
