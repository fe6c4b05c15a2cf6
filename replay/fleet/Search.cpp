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

constexpr size_t kMaxWholeValues = 50;
constexpr size_t kMaxGridDimensions = 2;
constexpr size_t kLeastGrid = 5;      // values of a range
constexpr double kCoarseShare = 0.6;  // of the settings; the others look closer
constexpr double kGlobalShare = 0.7;  // the same for the optimiser
constexpr double kFirstStep = 0.1;
constexpr int kTriesPerSetting = 20;  // points that round to one setting cost nothing

// Thousandths are finer than any device's.
std::string shortText(double number) {
    std::string text = format("%.3f", number);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

// Evenly from the first to the last.
std::vector<double> evenly(double from, double to, size_t count) {
    std::vector<double> values;
    for (size_t i = 0; i < count; ++i) {
        const double share =
                count == 1 ? 0.5 : static_cast<double>(i) / static_cast<double>(count - 1);
        values.push_back(std::clamp(from + share * (to - from), 0.0, 1.0));
    }
    return values;
}

std::vector<Point> product(const std::vector<std::vector<double>>& sides) {
    std::vector<Point> points{{}};
    for (const std::vector<double>& side : sides) {
        std::vector<Point> longer;
        for (const Point& point : points) {
            for (const double value : side) {
                longer.push_back(point);
                longer.back().push_back(value);
            }
        }
        points = std::move(longer);
    }
    return points;
}

class Grid {
  public:
    Grid(const std::vector<Dimension>& dimensions, size_t settings) : mDimensions(dimensions) {
        for (const Dimension& dimension : dimensions) {
            if (dimension.count() == 0) ++mRanges;
            mLists *= std::max<size_t>(1, dimension.count());
        }
        const double share = mRanges == 0 ? 1 : kCoarseShare;
        mSide = sideFor(share * static_cast<double>(settings) / static_cast<double>(mLists));
        mFits = mRanges == 0 ? mLists <= settings
                             : dimensions.size() <= kMaxGridDimensions && mSide >= kLeastGrid;
    }

    bool fits() const { return mFits; }

    void search(Landscape& landscape) {
        const std::vector<Point> points = product(sides());
        const std::vector<double> changes = landscape.changesAt(points);
        if (mRanges == 0) return;
        const auto best = std::min_element(changes.begin(), changes.end()) - changes.begin();
        const size_t side = sideFor(static_cast<double>(landscape.left()));
        landscape.changesAt(product(sidesAround(points[static_cast<size_t>(best)], side)));
    }

  private:
    size_t sideFor(double settings) const {
        const double ranges = static_cast<double>(std::max<size_t>(1, mRanges));
        return static_cast<size_t>(std::pow(settings, 1 / ranges) + 1e-9);
    }

    std::vector<std::vector<double>> sides() const {
        std::vector<std::vector<double>> sides;
        for (const Dimension& dimension : mDimensions) {
            sides.push_back(evenly(0, 1, dimension.count() == 0 ? mSide : dimension.count()));
        }
        return sides;
    }

    std::vector<std::vector<double>> sidesAround(const Point& best, size_t side) const {
        const double step = 1 / static_cast<double>(mSide - 1);
        std::vector<std::vector<double>> sides;
        for (size_t i = 0; i < best.size(); ++i) {
            const bool isRange = mDimensions[i].count() == 0;
            sides.push_back(isRange ? evenly(best[i] - step, best[i] + step, side)
                                    : std::vector<double>{best[i]});
        }
        return sides;
    }

    const std::vector<Dimension>& mDimensions;
    size_t mRanges = 0;
    size_t mLists = 1;
    size_t mSide = 0;
    bool mFits = false;
};

// One run of one algorithm, until `mLeave` settings are left.
class Optimiser {
  public:
    Optimiser(Landscape& landscape, size_t leave) : mLandscape(landscape), mLeave(leave) {}

    // From `mBest`, which it makes better.
    void run(nlopt::algorithm algorithm, Point& best) {
        nlopt::opt optimiser(algorithm, static_cast<unsigned>(best.size()));
        optimiser.set_lower_bounds(0);
        optimiser.set_upper_bounds(1);
        optimiser.set_min_objective(&Optimiser::changeAt, this);
        optimiser.set_initial_step(kFirstStep);
        optimiser.set_maxeval(static_cast<int>(mLandscape.left() - mLeave) * kTriesPerSetting);
        try {
            Point start = best;
            optimiser.optimize(start);
        } catch (const std::exception&) {  // as a rule the settings are used up
        }
        if (!mBest.empty()) best = mBest;
    }

  private:
    static double changeAt(const Point& point, Point&, void* self) {
        return static_cast<Optimiser*>(self)->change(point);
    }

    double change(const Point& point) {
        if (mLandscape.left() <= mLeave) throw nlopt::forced_stop();
        const double change = mLandscape.changesAt({point}).front();
        if (mBest.empty() || change < mLeast) {
            mBest = point;
            mLeast = change;
        }
        return change;
    }

    Landscape& mLandscape;
    const size_t mLeave;
    Point mBest;
    double mLeast = 0;
};

}  // namespace

std::string Dimension::valueAt(double share) const {
    if (!values.empty()) {
        const auto at = static_cast<size_t>(share * static_cast<double>(values.size()));
        return values[std::min(at, values.size() - 1)];
    }
    if (!isWhole) return shortText(least + share * (most - least));
    return shortText(std::min(most, std::floor(least + share * (most - least + 1))));
}

size_t Dimension::count() const {
    if (!values.empty()) return values.size();
    const auto wholes = static_cast<size_t>(most - least) + 1;
    return isWhole && wholes <= kMaxWholeValues ? wholes : 0;
}

Dimension parseDimension(const std::string& over) {
    const size_t equals = std::min(over.find('='), over.size());
    const size_t dots = over.find("..", equals);
    Dimension dimension;
    dimension.property = over.substr(0, equals);
    const std::string given = over.substr(std::min(equals + 1, over.size()));
    if (dots == std::string::npos) {
        std::istringstream list(given);
        for (std::string value; std::getline(list, value, ',');) dimension.values.push_back(value);
    } else if (!toNumber(over.substr(equals + 1, dots - equals - 1), dimension.least) ||
               !toNumber(over.substr(dots + 2), dimension.most) ||
               dimension.least >= dimension.most) {
        throw InputError("--over " + inQuotes(over) + ": give PROPERTY=LEAST..MOST");
    }
    if (given.empty()) throw InputError("--over " + inQuotes(over) + ": give PROPERTY=VALUE,VALUE");
    dimension.isWhole = takesWholeNumbers(dimension.property);
    return dimension;
}

void search(const std::vector<Dimension>& dimensions, Landscape& landscape) {
    Grid grid(dimensions, landscape.left());
    if (grid.fits()) return grid.search(landscape);
    Point best(dimensions.size(), 0.5);
    const double rest = (1 - kGlobalShare) * static_cast<double>(landscape.left());
    Optimiser(landscape, static_cast<size_t>(rest)).run(nlopt::GN_DIRECT_L, best);
    Optimiser(landscape, 0).run(nlopt::LN_SBPLX, best);
}

}  // namespace replay
