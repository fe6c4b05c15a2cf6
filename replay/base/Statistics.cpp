#include "replay/base/Statistics.h"

#include <algorithm>

namespace replay {

int64_t percentile(std::vector<int64_t> values, int percent) {
    if (values.empty()) return 0;
    const size_t rank = (values.size() * static_cast<size_t>(percent) + 99) / 100;
    const auto nth = values.begin() + static_cast<ptrdiff_t>(rank == 0 ? 0 : rank - 1);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

std::vector<int64_t> differences(const std::vector<int64_t>& timesNs) {
    std::vector<int64_t> result;
    for (size_t i = 1; i < timesNs.size(); ++i) result.push_back(timesNs[i] - timesNs[i - 1]);
    return result;
}

void OnTimes::on(int64_t timeNs) {
    lapse(timeNs);
    if (!mSince) mSince = timeNs;
    mUntilNs = INT64_MAX;
}

void OnTimes::onFor(int64_t timeNs, int64_t durationNs) {
    on(timeNs);
    mUntilNs = timeNs + durationNs;
}

void OnTimes::off(int64_t timeNs) {
    lapse(timeNs);
    if (mSince) mSpans.emplace_back(*mSince, timeNs);
    mSince.reset();
}

void OnTimes::finish(int64_t endNs) {
    off(endNs);
}

int64_t OnTimes::totalNs() const {
    int64_t total = 0;
    for (const auto& [begin, end] : mSpans) total += end - begin;
    return total;
}

void OnTimes::lapse(int64_t timeNs) {
    if (!mSince || timeNs < mUntilNs) return;
    mSpans.emplace_back(*mSince, mUntilNs);
    mSince.reset();
}

}  // namespace replay
