#include "replay/play/Work.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr char kPercentPrefix[] = "percent:";
constexpr char kFixedPrefix[] = "fixed:";
constexpr double kMaxPercent = 100;
constexpr double kMaxFixedMs = 10'000;
constexpr double kNsPerMs = 1e6;

struct PlainName {
    const char* name;
    WorkEstimator::Kind kind;
};

constexpr PlainName kPlainNames[] = {
        {"inferred", WorkEstimator::Kind::kInferred},
        {"interval", WorkEstimator::Kind::kInterval},
};

double amountOf(const std::string& text, size_t prefix, double most) {
    double amount = 0;
    if (!toNumber(std::string_view(text).substr(prefix), amount) || !(amount > 0) ||
        amount > most) {
        throw InputError("--work " + inQuotes(text) +
                         format(": give a number above 0, at most %g", most));
    }
    return amount;
}

}  // namespace

std::string WorkEstimator::name() const {
    if (kind == Kind::kPercent) return kPercentPrefix + format("%g", amount);
    if (kind == Kind::kFixed) return kFixedPrefix + format("%g", amount);
    for (const PlainName& plain : kPlainNames) {
        if (plain.kind == kind) return plain.name;
    }
    return "";
}

WorkEstimator parseWorkEstimator(const std::string& text) {
    for (const PlainName& plain : kPlainNames) {
        if (text == plain.name) return {plain.kind, 0};
    }
    if (text.rfind(kPercentPrefix, 0) == 0) {
        return {WorkEstimator::Kind::kPercent,
                amountOf(text, sizeof(kPercentPrefix) - 1, kMaxPercent)};
    }
    if (text.rfind(kFixedPrefix, 0) == 0) {
        return {WorkEstimator::Kind::kFixed, amountOf(text, sizeof(kFixedPrefix) - 1, kMaxFixedMs)};
    }
    throw InputError("--work " + inQuotes(text) +
                     ": give inferred, interval, percent:P, fixed:MS or all");
}

std::vector<WorkEstimator> allWorkEstimators() {
    std::vector<WorkEstimator> all;
    for (const PlainName& plain : kPlainNames) all.push_back({plain.kind, 0});
    return all;
}

void applyEstimator(const WorkEstimator& estimator, const LayerEvents& layer, int64_t periodNs,
                    std::vector<FrameWork>& work) {
    if (estimator.kind == WorkEstimator::Kind::kInferred) return;
    for (size_t i = 0; i < work.size(); ++i) {
        FrameWork said;
        // The capture may begin in the middle of the first frame.
        const int64_t intervalNs = i == 0 ? std::min(layer.queueTimesNs[0], periodNs)
                                          : layer.queueTimesNs[i] - layer.queueTimesNs[i - 1];
        const double percent = estimator.amount / 100;
        if (estimator.kind == WorkEstimator::Kind::kInterval) {
            said.workNs = intervalNs;
        } else if (estimator.kind == WorkEstimator::Kind::kFixed) {
            said.workNs = std::llround(estimator.amount * kNsPerMs);
        } else {
            said.workNs = std::llround(static_cast<double>(work[i].workNs) * percent);
            said.firstStageNs = std::llround(static_cast<double>(work[i].firstStageNs) * percent);
        }
        said.workNs = std::max(said.workNs, kMinWorkNs);
        work[i] = said;
    }
}

}  // namespace replay
