#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace bench {

// The value that a share `q` of the samples does not exceed.
inline double quantile(std::vector<double> samples, double q) {
    if (samples.empty()) return NAN;
    const auto rank = static_cast<size_t>(q * static_cast<double>(samples.size() - 1) + 0.5);
    std::nth_element(samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(rank),
                     samples.end());
    return samples[rank];
}

struct MedianInterval {
    double low, median, high;
};

// The median and its 95 % confidence interval by the sign test, which assumes nothing about how the
// samples are distributed: the ranks that a fair coin leaves with 95 % probability.
inline MedianInterval medianInterval(std::vector<double> samples) {
    if (samples.empty()) return {NAN, NAN, NAN};
    std::sort(samples.begin(), samples.end());
    const auto count = static_cast<double>(samples.size());
    const double reach = 1.96 * std::sqrt(count) / 2;
    const auto at = [&](double rank) {
        return samples[static_cast<size_t>(std::clamp(rank, 0.0, count - 1))];
    };
    return {at(std::floor(count / 2 - reach) - 1), at(std::floor(count / 2)),
            at(std::ceil(count / 2 + reach))};
}

}  // namespace bench
