#include "replay/findings/Ranking.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

#include "replay/findings/Figures.h"

namespace replay {

namespace {

// What makes no difference to anybody, by unit.
constexpr double kGrainCount = 3;
constexpr double kGrainMs = 1;
constexpr double kGrainOther = 5;
constexpr double kNoticeable = 0.02;

double grainOf(const Figure& figure) {
    if (figure.isCount()) return kGrainCount;
    return std::string(figure.unit) == "ms" ? kGrainMs : kGrainOther;
}

struct Extremes {
    double worst = -std::numeric_limits<double>::infinity();
    double best = std::numeric_limits<double>::infinity();
};

Extremes extremesOf(size_t figure, const std::vector<std::vector<double>>& runs) {
    Extremes extremes;
    for (size_t i = 1; i < runs.size(); ++i) {
        const double change = regression(figure, runs[0][figure], runs[i][figure]);
        extremes.worst = std::max(extremes.worst, change);
        extremes.best = std::min(extremes.best, change);
    }
    return extremes;
}

// Of the worst and the best that became of a figure.
Trend overall(Trend worst, Trend best) {
    if (worst != Trend::kWorse) return best;
    return best == Trend::kBetter ? Trend::kMixed : Trend::kWorse;
}

bool differs(size_t figure, const std::vector<std::vector<double>>& runs) {
    return std::any_of(runs.begin(), runs.end(), [&](const std::vector<double>& run) {
        const double a = runs[0][figure];
        const double b = run[figure];
        return a != b && !(std::isnan(a) && std::isnan(b));
    });
}

}  // namespace

double regression(size_t index, double before, double after) {
    const Figure& figure = figures()[index];
    if (figure.better == Figure::Better::kNeither || std::isnan(before) || std::isnan(after)) {
        return 0;
    }
    const double grain = grainOf(figure);
    const double growth =
            std::log((std::max(after, 0.0) + grain) / (std::max(before, 0.0) + grain));
    return figure.better == Figure::Better::kLess ? growth : -growth;
}

Trend trendOf(double regression) {
    if (std::abs(regression) < kNoticeable) return Trend::kNeither;
    return regression > 0 ? Trend::kWorse : Trend::kBetter;
}

const char* toString(Trend trend) {
    switch (trend) {
        case Trend::kWorse:
            return "worse";
        case Trend::kBetter:
            return "better";
        case Trend::kMixed:
            return "worse or better";
        case Trend::kNeither:
            break;
    }
    return "neither";
}

std::vector<RankedFigure> rankedFigures(const std::vector<std::vector<double>>& runs) {
    struct Scored {
        RankedFigure ranked;
        double score;
    };
    std::vector<Scored> order;
    for (size_t i = 0; i < figures().size(); ++i) {
        if (!differs(i, runs)) continue;
        const auto [worst, best] = extremesOf(i, runs);
        const Trend trend = overall(trendOf(worst), trendOf(best));
        const double score = trend == Trend::kNeither ? 0 : trend == Trend::kBetter ? best : worst;
        order.push_back({{i, trend}, score});
    }
    std::stable_sort(order.begin(), order.end(), [](const Scored& a, const Scored& b) {
        return std::tuple(a.ranked.trend, -a.score) < std::tuple(b.ranked.trend, -b.score);
    });
    std::vector<RankedFigure> ranked;
    for (const Scored& item : order) ranked.push_back(item.ranked);
    return ranked;
}

WorstChange worstChange(const std::vector<std::vector<double>>& runs) {
    WorstChange worst;
    for (size_t i = 0; i < figures().size(); ++i) {
        const double regression = extremesOf(i, runs).worst;
        if (regression > worst.regression) worst = {i, regression};
    }
    return worst;
}

}  // namespace replay
