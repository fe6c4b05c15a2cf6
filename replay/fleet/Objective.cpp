#include "replay/fleet/Objective.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"

namespace replay {

namespace {

constexpr double kNextLevel = 0.01;
// Below these a base counts as this much: nothing is infinitely worse than nothing.
constexpr double kLeastBase = 1;

double numberOf(const std::string& text, const std::string& whole) {
    double number = 0;
    if (!toNumber(text, number) || !std::isfinite(number)) {
        throw InputError(inQuotes(whole) + ": " + inQuotes(text) + " is no number");
    }
    return number;
}

}  // namespace

Objective::Objective(const std::vector<std::string>& levels,
                     const std::vector<std::string>& limits) {
    for (const std::string& level : levels) addLevel(level);
    for (const std::string& limit : limits) addLimit(limit);
}

size_t Objective::use(const std::string& name) {
    const auto& all = replay::figures();
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const Figure& figure) { return figure.name == name; });
    if (found == all.end() || found->better == Figure::Better::kNeither) {
        throw InputError(inQuotes(name) +
                         ": no figure of docs/json.md that is better when less or more");
    }
    const auto index = static_cast<size_t>(found - all.begin());
    const auto used = std::find(mFigures.begin(), mFigures.end(), index);
    const auto place = static_cast<size_t>(used - mFigures.begin());
    if (used == mFigures.end()) mFigures.push_back(index);
    return place;
}

void Objective::addLevel(const std::string& level) {
    mText += (mText.empty() ? "" : ", then ") + level;
    std::vector<Term> terms;
    std::istringstream parts(level);
    for (std::string part; std::getline(parts, part, ',');) {
        const size_t star = std::min(part.find('*'), part.size());
        const std::string weight = star == part.size() ? "1" : part.substr(star + 1);
        terms.push_back({use(part.substr(0, star)), numberOf(weight, level)});
    }
    mLevels.push_back(terms);
}

void Objective::addLimit(const std::string& limit) {
    const size_t equals = limit.find('=');
    if (equals == std::string::npos) throw InputError(inQuotes(limit) + ": give FIGURE=PERCENT");
    const std::string percent = limit.substr(equals + 1);
    mLimits.push_back({use(limit.substr(0, equals)), numberOf(percent, limit) / 100});
    mText += "; no capture worse in " + limit.substr(0, equals) + " by more than " + percent + " %";
}

Values Objective::valuesOf(const Row& row) const {
    Values values;
    if (!row.failure.empty()) return values;
    for (const size_t index : mFigures) {
        const Figure& figure = replay::figures()[index];
        const auto found = row.figures.find(figure.name);
        const bool perMinute = figure.isCount() || std::string(figure.unit) == "s";
        const double scale = perMinute && row.seconds > 0 ? 60 / row.seconds : 1;
        values.push_back(found == row.figures.end() ? 0 : found->second * scale);
    }
    return values;
}

Values Objective::mean(const std::vector<Values>& runs) {
    Values sum;
    double count = 0;
    for (const Values& run : runs) {
        if (run.empty()) continue;
        sum.resize(run.size());
        for (size_t i = 0; i < run.size(); ++i) sum[i] += run[i];
        ++count;
    }
    for (double& value : sum) value /= count;
    return sum;
}

double Objective::figureChange(size_t i, const Values& before, const Values& after) const {
    const double change = (after[i] - before[i]) / std::max(std::abs(before[i]), kLeastBase);
    return replay::figures()[mFigures[i]].better == Figure::Better::kLess ? change : -change;
}

double Objective::change(const std::vector<Values>& base, const std::vector<Values>& other) const {
    for (size_t run = 0; run < base.size(); ++run) {
        if (other[run].empty()) return kUnfit;
        for (const Term& limit : mLimits) {
            if (figureChange(limit.figure, base[run], other[run]) > limit.weight) return kUnfit;
        }
    }
    const Values before = mean(base);
    const Values after = mean(other);
    double sum = 0;
    double scale = 1;
    for (const std::vector<Term>& level : mLevels) {
        for (const Term& term : level) {
            sum += scale * term.weight * figureChange(term.figure, before, after);
        }
        scale *= kNextLevel;
    }
    return sum;
}

}  // namespace replay
