#include "replay/fleet/Search.h"

#include <nlopt.hpp>

#include <algorithm>
#include <cmath>
#include <sstream>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/play/Settings.h"

namespace replay {

namespace {

constexpr double kMaxWholeValues = 50;  // of a range that is taken for a list
constexpr size_t kMaxGridDimensions = 2;
constexpr size_t kLeastGrid = 5;      // values of a range
constexpr double kCoarseShare = 0.6;  // of the settings; the others look closer
constexpr double kGlobalShare = 0.7;  // the same for the optimiser
constexpr double kFirstStep = 0.1;
constexpr double kTriesPerSetting = 20;  // choices that were tried before cost nothing

// Thousandths are finer than any device's.
std::string shortText(double number) {
    std::string text = format("%.3f", number);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

double ratio(size_t part, size_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
}

// Every combination of all values of the lists and `side` values of each range, evenly spread.
std::vector<Choice> gridOf(const std::vector<Dimension>& dimensions, size_t side) {
    std::vector<Choice> choices{{}};
    for (const Dimension& dimension : dimensions) {
        const size_t count = dimension.isRange() ? side : dimension.values.size();
        std::vector<Choice> longer;
        for (const Choice& choice : choices) {
            for (size_t i = 0; i < count; ++i) {
                longer.push_back(choice);
                longer.back().push_back(dimension.valueAt(count == 1 ? 0.5 : ratio(i, count - 1)));
            }
        }
        choices = std::move(longer);
    }
    return choices;
}

// How many values of each range a grid has room for; 0 if not even the lists fit.
size_t sideFor(const std::vector<Dimension>& dimensions, double settings) {
    double ranges = 0;
    for (const Dimension& dimension : dimensions) {
        if (dimension.isRange()) ++ranges;
        settings /= static_cast<double>(std::max<size_t>(1, dimension.values.size()));
    }
    return static_cast<size_t>(std::pow(settings, 1 / std::max(1.0, ranges)) + 1e-9);
}

// What lies closer to the value than those beside it in a grid.
Dimension around(Dimension dimension, const std::string& value, size_t side) {
    if (!dimension.isRange()) {
        dimension.values = {value};
        return dimension;
    }
    const double step = (dimension.most - dimension.least) / static_cast<double>(side - 1);
    const double at = std::stod(value);
    dimension.least = std::max(dimension.least, at - step);
    dimension.most = std::min(dimension.most, at + step);
    return dimension;
}

void searchGrid(std::vector<Dimension> dimensions, Landscape& landscape, size_t side) {
    const std::vector<Choice> choices = gridOf(dimensions, side);
    const std::vector<double> changes = landscape.changesOf(choices);
    const auto best = std::min_element(changes.begin(), changes.end()) - changes.begin();
    for (size_t i = 0; i < dimensions.size(); ++i) {
        dimensions[i] = around(dimensions[i], choices[static_cast<size_t>(best)][i], side);
    }
    const size_t closer = sideFor(dimensions, static_cast<double>(landscape.left()));
    if (closer > 0) landscape.changesOf(gridOf(dimensions, closer));
}

// Runs NLopt's algorithms until enough settings were tried.
class Optimiser {
  public:
    Optimiser(const std::vector<Dimension>& dimensions, Landscape& landscape)
          : mDimensions(dimensions), mLandscape(landscape), mBest(dimensions.size(), 0.5) {}

    // Leaves so many. From the best so far.
    void run(nlopt::algorithm algorithm, size_t leave) {
        mLeave = leave;
        nlopt::opt optimiser(algorithm, static_cast<unsigned>(mBest.size()));
        optimiser.set_lower_bounds(0);
        optimiser.set_upper_bounds(1);
        optimiser.set_min_objective(&Optimiser::changeAt, this);
        optimiser.set_initial_step(kFirstStep);
        optimiser.set_maxeval(
                static_cast<int>(static_cast<double>(mLandscape.left()) * kTriesPerSetting));
        try {
            std::vector<double> start = mBest;
            optimiser.optimize(start);
        } catch (const nlopt::forced_stop&) {  // the settings are used up
        } catch (const nlopt::roundoff_limited&) {
        }
    }

  private:
    static double changeAt(const std::vector<double>& shares, std::vector<double>&, void* self) {
        return static_cast<Optimiser*>(self)->change(shares);
    }

    double change(const std::vector<double>& shares) {
        if (mLandscape.left() <= mLeave) throw nlopt::forced_stop();
        Choice choice;
        for (size_t i = 0; i < shares.size(); ++i) {
            choice.push_back(mDimensions[i].valueAt(shares[i]));
        }
        const double change = mLandscape.changesOf({choice}).front();
        if (change < mLeast) {
            mBest = shares;
            mLeast = change;
        }
        return change;
    }

    const std::vector<Dimension>& mDimensions;
    Landscape& mLandscape;
    size_t mLeave = 0;
    std::vector<double> mBest;  // a share of each dimension
    double mLeast = HUGE_VAL;
};

}  // namespace

std::string Dimension::valueAt(double share) const {
    if (!isRange()) {
        const auto at = static_cast<size_t>(share * static_cast<double>(values.size()));
        return values[std::min(at, values.size() - 1)];
    }
    if (!isWhole) return shortText(least + share * (most - least));
    return shortText(std::min(most, std::floor(least + share * (most - least + 1))));
}

Dimension parseDimension(const std::string& over) {
    const auto refuse = [&](const char* advice) {
        throw InputError("--over " + inQuotes(over) + ": give PROPERTY=" + advice);
    };
    const size_t equals = std::min(over.find('='), over.size());
    const std::string given = over.substr(std::min(equals + 1, over.size()));
    const size_t dots = given.find("..");
    Dimension dimension;
    dimension.property = over.substr(0, equals);
    dimension.isWhole = takesWholeNumbers(dimension.property);
    if (dots == std::string::npos) {
        std::istringstream list(given);
        for (std::string value; std::getline(list, value, ',');) dimension.values.push_back(value);
        if (dimension.values.empty()) refuse("VALUE,VALUE");
        return dimension;
    }
    if (!toNumber(given.substr(0, dots), dimension.least) ||
        !toNumber(given.substr(dots + 2), dimension.most) || dimension.least >= dimension.most) {
        refuse("LEAST..MOST");
    }
    if (dimension.isWhole && dimension.most - dimension.least < kMaxWholeValues) {
        for (double value = dimension.least; value <= dimension.most; ++value) {
            dimension.values.push_back(shortText(value));
        }
    }
    return dimension;
}

void search(const std::vector<Dimension>& dimensions, Landscape& landscape) {
    const size_t settings = landscape.left();
    const bool hasRange = std::any_of(dimensions.begin(), dimensions.end(),
                                      [](const Dimension& one) { return one.isRange(); });
    const size_t side =
            sideFor(dimensions, (hasRange ? kCoarseShare : 1) * static_cast<double>(settings));
    if (hasRange ? side >= kLeastGrid && dimensions.size() <= kMaxGridDimensions : side >= 1) {
        return searchGrid(dimensions, landscape, side);
    }
    Optimiser optimiser(dimensions, landscape);
    optimiser.run(nlopt::GN_DIRECT_L,
                  static_cast<size_t>((1 - kGlobalShare) * static_cast<double>(settings)));
    optimiser.run(nlopt::LN_SBPLX, 0);
}

}  // namespace replay
