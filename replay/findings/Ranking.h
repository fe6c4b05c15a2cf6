#pragma once

// What a change did to the figures, on one scale for all of them.

#include <cstddef>
#include <string>
#include <vector>

namespace replay {

// How much worse (above 0) or better a figure became: the logarithm of the factor, with a little
// added to both sides so that small numbers do not count for much. 0 for figures that are neither.
double regression(size_t figure, double before, double after);

// Mixed: worse in one run and better in another. Neither: it is no matter of better or worse, or the
// change is too small to matter.
enum class Trend { kWorse, kMixed, kNeither, kBetter };

Trend trendOf(double regression);
const char* toString(Trend trend);

struct RankedFigure {
    size_t figure = 0;
    Trend trend = Trend::kNeither;  // over all runs
};

// Figures that are not the same in all runs, the worst regressions first, then what is mixed, then
// what is neither, the greatest improvements last. `runs` holds the values of each run by figures(); the first is what
// the others are compared with.
std::vector<RankedFigure> rankedFigures(const std::vector<std::vector<double>>& runs);

struct WorstChange {
    size_t figure = 0;
    double regression = 0;  // 0 if no figure became worse
};

// Of any figure in any run.
WorstChange worstChange(const std::vector<std::vector<double>>& runs);

}  // namespace replay
