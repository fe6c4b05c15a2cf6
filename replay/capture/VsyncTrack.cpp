#include "replay/capture/VsyncTrack.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace replay {

namespace {

constexpr size_t kMinIntervals = 8;
// Longer pauses tell little about the period: the display may have been off or in another mode.
constexpr int64_t kMaxPeriodsPerInterval = 8;
// The shortest intervals are single periods; a tenth of them may be freaks.
constexpr size_t kFreakShare = 10;
// Displays have at least a tenth between their rates; measured periods differ by less.
constexpr int64_t kPercent = 100;
// No display that games run on is slower than 50 Hz.
constexpr int64_t kSlowestDisplayNs = 20'500'000;
constexpr int64_t kSamePercent = 5;

int64_t roundedQuotient(int64_t dividend, int64_t divisor) {
    return (dividend + divisor / 2) / divisor;
}

int64_t quantile(std::vector<int64_t>& values, size_t index) {
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(index), values.end());
    return values[index];
}

using Times = std::vector<int64_t>;

// A game at half the rate leaves every second vsync out, so the plain median would be two periods.
int64_t periodOf(Times intervals) {
    const int64_t guess = quantile(intervals, intervals.size() / kFreakShare);
    Times periods;
    for (const int64_t interval : intervals) {
        const int64_t count = roundedQuotient(interval, guess);
        if (count >= 1 && count <= kMaxPeriodsPerInterval) periods.push_back(interval / count);
    }
    return quantile(periods, periods.size() / 2);
}

// How badly an interval fits whole periods. Of two periods that fit it the longer one is meant.
double misfit(int64_t interval, int64_t periodNs) {
    constexpr double kPerLeftOut = 0.01;
    const int64_t count = std::max<int64_t>(1, roundedQuotient(interval, periodNs));
    if (count > kMaxPeriodsPerInterval) return 0;
    const double periods = static_cast<double>(interval) / static_cast<double>(periodNs);
    return std::abs(periods - static_cast<double>(count)) +
           kPerLeftOut * static_cast<double>(count - 1);
}

// Intervals from `begin` to the next stretch's, with one period.
struct Stretch {
    size_t begin = 0;
    size_t end = 0;
    int64_t periodNs = 0;
};

// Cuts a capture's vsyncs into stretches of one period each.
class Stretches {
  public:
    explicit Stretches(const Times& timesNs) {
        for (size_t i = 1; i < timesNs.size(); ++i) {
            mIntervals.push_back(timesNs[i] - timesNs[i - 1]);
        }
    }

    std::vector<Stretch> cut() const {
        std::vector<Stretch> stretches = roughly();
        for (size_t i = 0; i < stretches.size(); ++i) {
            stretches[i].begin = i == 0 ? 0 : edge(stretches[i - 1], stretches[i]);
            if (i > 0) stretches[i - 1].end = stretches[i].begin;
        }
        if (!stretches.empty()) stretches.back().end = mIntervals.size();
        return stretches;
    }

  private:
    // By the period that each window shows. Windows across an edge show anything, but not for long.
    std::vector<Stretch> roughly() const {
        std::vector<Stretch> stretches;
        Stretch now;
        size_t alike = 0;  // the last intervals that have about the stretch's period
        const auto finish = [&] {
            if (now.end - now.begin < kWindow) return;
            const bool same =
                    !stretches.empty() && isSamePeriod(stretches.back().periodNs, now.periodNs);
            if (same) {
                stretches.back().end = now.end;
            } else {
                stretches.push_back(now);
            }
        };
        for (size_t i = 0; i + kWindow <= mIntervals.size(); ++i) {
            const bool isAlike = isSamePeriod(mIntervals[i + kWindow - 1], now.periodNs);
            alike = isAlike ? alike + 1 : 0;
            const auto begin = mIntervals.begin() + static_cast<ptrdiff_t>(i);
            // A window of such intervals has no other period, and nearly all are of that kind.
            const int64_t periodNs =
                    alike >= kWindow ? now.periodNs : periodOf(Times(begin, begin + kWindow));
            if (i > 0 && isSamePeriod(periodNs, now.periodNs)) {
                now.end = i + 1;
                continue;
            }
            finish();
            now = {i, i + 1, periodNs};
            alike = 0;
        }
        finish();
        return stretches;
    }

    // Where intervals begin to fit the later period better.
    size_t edge(const Stretch& before, const Stretch& after) const {
        const size_t first = before.end - 1;
        const size_t last = std::min(after.begin + kWindow, mIntervals.size());
        double cost = 0;
        for (size_t i = first; i < last; ++i) cost += misfit(mIntervals[i], after.periodNs);
        double least = cost;
        size_t best = first;
        for (size_t i = first; i < last; ++i) {
            cost += misfit(mIntervals[i], before.periodNs) - misfit(mIntervals[i], after.periodNs);
            if (cost >= least) continue;
            least = cost;
            best = i + 1;
        }
        return best;
    }

    static constexpr size_t kWindow = 16;

    Times mIntervals;
};

// Whether a stretch only looks like one, because the compositor slept at every second vsync: its
// period is a multiple of its neighbour's, and either no display has it or the beat goes on.
bool isBeatLeftOut(const Stretch& stretch, int64_t neighbourNs, const Times& timesNs,
                   const FasterBeat& isFaster) {
    const int64_t count = roundedQuotient(stretch.periodNs, neighbourNs);
    if (count < 2 || !isSamePeriod(stretch.periodNs, count * neighbourNs)) return false;
    return stretch.periodNs > kSlowestDisplayNs ||
           isFaster(timesNs[stretch.begin], timesNs[stretch.end], neighbourNs);
}

// Each rate from where it begins.
std::vector<RateChange> ratesOf(const Times& timesNs, const FasterBeat& isFaster) {
    const std::vector<Stretch> stretches = Stretches(timesNs).cut();
    std::vector<RateChange> rates;
    for (size_t i = 0; i < stretches.size(); ++i) {
        const auto isLeftOut = [&](size_t neighbour) {
            return neighbour < stretches.size() &&
                   isBeatLeftOut(stretches[i], stretches[neighbour].periodNs, timesNs, isFaster);
        };
        if (isLeftOut(i - 1) || isLeftOut(i + 1)) continue;
        const auto begin = timesNs.begin() + static_cast<ptrdiff_t>(stretches[i].begin);
        const auto end = timesNs.begin() + static_cast<ptrdiff_t>(stretches[i].end) + 1;
        const int64_t periodNs = measurePeriodNs(Times(begin, end)).value_or(stretches[i].periodNs);
        if (!rates.empty() && isSamePeriod(rates.back().periodNs, periodNs)) continue;
        rates.push_back({*begin, periodNs});
    }
    return rates;
}

}  // namespace

bool isSamePeriod(int64_t a, int64_t b) {
    return 2 * kPercent * std::abs(a - b) <= kSamePercent * (a + b);
}

int64_t Refresh::periodAt(int64_t timeNs) const {
    const auto after = std::upper_bound(
            changes.begin(), changes.end(), timeNs,
            [](int64_t time, const RateChange& change) { return time < change.timeNs; });
    return after == changes.begin() ? periodNs : (after - 1)->periodNs;
}

std::vector<int64_t> Refresh::periodsNs() const {
    std::vector<int64_t> periods = {periodNs};
    for (const RateChange& change : changes) {
        const auto isSame = [&](int64_t other) { return isSamePeriod(other, change.periodNs); };
        if (std::none_of(periods.begin(), periods.end(), isSame))
            periods.push_back(change.periodNs);
    }
    return periods;
}

int64_t Refresh::longestPeriodNs(int64_t beginNs, int64_t endNs) const {
    int64_t longest = periodAt(beginNs);
    for (const RateChange& change : changes) {
        const bool within = change.timeNs > beginNs && change.timeNs <= endNs;
        if (within) longest = std::max(longest, change.periodNs);
    }
    return longest;
}

std::optional<int64_t> measurePeriodNs(const std::vector<int64_t>& timesNs) {
    Times intervals;
    for (size_t i = 1; i < timesNs.size(); ++i) {
        if (timesNs[i] > timesNs[i - 1]) intervals.push_back(timesNs[i] - timesNs[i - 1]);
    }
    if (intervals.size() < kMinIntervals) return std::nullopt;
    return periodOf(intervals);
}

std::optional<Refresh> measureRefresh(const std::vector<int64_t>& timesNs,
                                      const FasterBeat& isFaster) {
    const std::optional<int64_t> whole = measurePeriodNs(timesNs);
    if (!whole) return std::nullopt;
    Times distinct = timesNs;
    distinct.erase(std::unique(distinct.begin(), distinct.end()), distinct.end());
    std::vector<RateChange> rates = ratesOf(distinct, isFaster);
    if (rates.size() < 2) return Refresh{*whole, {}};
    return Refresh{rates.front().periodNs, {rates.begin() + 1, rates.end()}};
}

std::vector<int64_t> continueVsyncs(const std::vector<int64_t>& timesNs, const Refresh& refresh,
                                    int64_t startNs, int64_t endNs) {
    std::vector<int64_t> result;
    const int64_t first = timesNs.empty() ? startNs : timesNs.front();
    int64_t periodNs = refresh.periodNs;
    int64_t next = first - (first - startNs) / periodNs * periodNs;
    for (const int64_t known : timesNs) {
        for (; next + periodNs / 2 < known; next += periodNs) result.push_back(next);
        result.push_back(known);
        periodNs = refresh.periodAt(known);
        next = known + periodNs;
    }
    for (; next <= endNs; next += periodNs) result.push_back(next);
    return result;
}

}  // namespace replay
