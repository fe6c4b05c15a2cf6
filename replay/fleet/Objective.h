#pragma once

// What is better for a fleet, as one number: below 0 is better than the base.

#include <string>
#include <vector>

#include "replay/fleet/Row.h"

namespace replay {

// The figures of one run that an objective asks for, by Objective::figures(); empty: the run failed.
using Values = std::vector<double>;

// The change of a setting under which a run fails or a limit is broken: worse than any other.
constexpr double kUnfit = 1e6;

// Figures in the order of their importance. What one changes is taken relative to the base, on
// average over the captures; each following level counts a hundredth of the one before, so that it
// decides between settings that the ones before do not tell apart by more than a hundredth of what
// it changes itself. Counts and totals are per minute of the capture.
class Objective {
  public:
    // A level is "FIGURE" or "FIGURE*WEIGHT,FIGURE*WEIGHT", a limit "FIGURE=PERCENT": no capture may
    // be worse than under the base by more than that. Throws InputError.
    Objective(const std::vector<std::string>& levels, const std::vector<std::string>& limits);

    const std::vector<size_t>& figures() const { return mFigures; }  // of the table of figures
    Values valuesOf(const Row& row) const;

    // By capture; none failed under the base.
    double change(const std::vector<Values>& base, const std::vector<Values>& other) const;

    // Over the captures that were played; empty if none was.
    static Values mean(const std::vector<Values>& runs);

    const std::string& text() const { return mText; }  // for people

  private:
    struct Term {
        size_t figure;  // of mFigures
        double weight;
    };

    // Of figures()[i], relative; above 0 is worse.
    double figureChange(size_t i, const Values& before, const Values& after) const;
    size_t use(const std::string& name);
    void addLevel(const std::string& level);
    void addLimit(const std::string& limit);

    std::vector<size_t> mFigures;
    std::vector<std::vector<Term>> mLevels;
    std::vector<Term> mLimits;  // the weight is the share that is still allowed
    std::string mText;
};

}  // namespace replay
