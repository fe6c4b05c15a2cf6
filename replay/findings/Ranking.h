#pragma once

// What a change did to the figures, on one scale for all of them.

#include <cstddef>
#include <string>
#include <vector>

namespace replay {

// How much worse (above 0) or better a figure became: the logarithm of the factor, with a little
// added to both sides so that small numbers do not count for much. 0 for figures that are neither.
double regression(size_t figure, double before, double after);

// Neither: it is no matter of better or worse, or the change is too small to matter.
enum class Trend { kWorse, kNeither, kBetter };

Trend trendOf(double regression);
const char* toString(Trend trend);

struct RankedFigure {
    size_t figure = 0;
    Trend trend = Trend::kNeither;  // worse, if it became that in any of the runs
};

// Figures that are not the same in all runs, the worst regressions first, then what is neither, the
// greatest improvements last. `runs` holds the values of each run by figures(); the first is what
// the others are compared with.
std::vector<RankedFigure> rankedFigures(const std::vector<std::vector<double>>& runs);

// The worst regression of any figure in any run; 0 if there is none.
double worstRegression(const std::vector<std::vector<double>>& runs);

}  // namespace replay
