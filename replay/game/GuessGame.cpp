// The makes that are tried, and those that the capture tells.

#include <algorithm>
#include <cmath>
#include <map>

#include "replay/base/Statistics.h"
#include "replay/game/GamesTold.h"

namespace replay {

namespace {

using Kind = Make::Kind;

// How finely a phase against the vsync is looked for.
constexpr int kPhases = 24;
// Makes whose games look as regular are told apart by how much has to be supposed.
constexpr double kAsGood = 1.03;
// A game that never waited, and yet has the display's rate.
constexpr double kCoincidence = 0.1;
constexpr double kExactly = 0.01;
constexpr size_t kFewWait = 10;  // less than a tenth of the frames
constexpr size_t kTimerFrames = 32;
constexpr int64_t kLongPercent = 150;
constexpr double kSupposed[] = {0, 0.002, 0.003, 0};

class Guesser {
  public:
    explicit Guesser(const GameEvidence& evidence)
          : mEvidence(evidence), mBeats(evidence.vsyncs), mTimes(evidence.layer.queueTimesNs) {}

    std::vector<Game> guess() {
        if (mTimes.empty()) return {};
        for (const int buffers : mEvidence.buffers) {
            tryMake({Kind::kBuffer, buffers});
            tryVsyncs(buffers);
            tryTimer(buffers);
        }
        std::vector<Game> games;
        for (auto& [kind, game] : mBest) games.push_back(std::move(game));
        std::stable_sort(games.begin(), games.end(), [](const Game& a, const Game& b) {
            return a.strangeness < b.strangeness;
        });
        return games;
    }

    // What must have been work if the game is of that make.
    Game under(const Make& make) const {
        Game game;
        game.make = make;
        // Of what came before the capture nothing is known: a timer that has just run out leaves
        // half of the time to the work.
        int64_t lastNs = mTimes.front() - make.timerNs / 2;
        double strange = 0;
        size_t waited = 0;
        int64_t firstReadyNs = 0;
        game.work.emplace_back();
        const std::vector<int64_t> free = freeTimesNs(mEvidence.layer, make.buffers);
        for (size_t i = 1; i < mTimes.size(); ++i) {
            FrameWork frame;
            const int64_t periodNs = mBeats.periodAt(mTimes[i]);
            const int64_t latestNs = mTimes[i] - kMinWorkNs;
            int64_t ready = readyNs(make, mBeats, frame, mTimes[i - 1], lastNs);
            if (std::max(ready, free[i]) > latestNs) strange += 1;
            if (ready > latestNs && make.kind == Kind::kVsync) {
                frame.passedVsyncs = -(ready - latestNs + periodNs - 1) / periodNs;
                ready = readyNs(make, mBeats, frame, mTimes[i - 1], lastNs);
            }
            if (i == 1) firstReadyNs = ready;
            const int64_t begin = std::max(ready, free[i]);
            frame.workNs = std::max(mTimes[i] - begin, kMinWorkNs);
            game.work.push_back(frame);
            if (begin > mTimes[i - 1]) ++waited;
            lastNs = std::min(ready, latestNs);
        }
        const int64_t median = medianWorkNs({game.work.begin() + 1, game.work.end()});
        game.work.front().workNs = std::max(std::min(mTimes.front(), median), kMinWorkNs);
        // The model has the first frame begin so long before it was queued.
        if (make.kind == Kind::kTimer && game.work.size() > 1)
            game.work[1].timerNs = firstReadyNs - mTimes.front() + game.work.front().workNs;
        for (size_t i = 0; i < mTimes.size(); ++i)
            strange += std::min(1.0, inPeriods(std::abs(game.work[i].workNs - median), mTimes[i]));
        const bool coincidence = kFewWait * waited < mTimes.size() && isPaced();
        game.strangeness = (coincidence ? kCoincidence : 0) +
                           kSupposed[static_cast<size_t>(make.kind)] +
                           strange / static_cast<double>(game.work.size());
        return game;
    }

  private:
    void tryVsyncs(int buffers) {
        for (int every = 1; every <= kMaxEveryVsyncs; ++every) {
            for (const bool takesMissed : {false, true}) {
                Make make{Kind::kVsync, buffers};
                make.everyVsyncs = every;
                make.takesMissed = takesMissed;
                for (const int64_t periodNs : mEvidence.vsyncs.periodsNs())
                    make.phases.push_back({periodNs, 0});
                keep(withPhases(make));
            }
        }
    }

    // First as much of each rate's period, then each for itself.
    Game withPhases(const Make& make) const {
        Game game = withPhases(make, 0, make.phases.size());
        for (size_t i = 0; make.phases.size() > 1 && i < make.phases.size(); ++i)
            game = withPhases(game.make, i, i + 1);
        return game;
    }

    Game withPhases(Make make, size_t begin, size_t end) const {
        std::vector<Game> games;
        double best = 0;
        for (int i = 0; i < kPhases; ++i) {
            for (size_t rate = begin; rate < end; ++rate)
                make.phases[rate].phaseNs = make.phases[rate].periodNs * i / kPhases;
            games.push_back(under(make));
            if (i == 0 || games.back().strangeness < best) best = games.back().strangeness;
        }
        return std::move(games[middleOf(games, kAsGood * best)]);
    }

    // Neighbouring phases often explain the capture as well: the middle of the longest row of them.
    static size_t middleOf(const std::vector<Game>& games, double limit) {
        size_t longest = 0;
        size_t middle = 0;
        size_t row = 0;
        for (size_t i = 0; i < 2 * games.size(); ++i) {
            row = games[i % games.size()].strangeness <= limit ? row + 1 : 0;
            if (row <= longest || row > games.size()) continue;
            longest = row;
            middle = (i - row / 2) % games.size();
        }
        return middle;
    }

    void tryTimer(int buffers) {
        Make make{Kind::kTimer, buffers};
        make.timerNs = timerNs();
        if (make.timerNs > 0) tryMake(make);
    }

    // Over many frames what their work varies by hardly matters, if none of them was held up.
    int64_t timerNs() const {
        const std::vector<int64_t> intervals = differences(mTimes);
        const int64_t longNs = percentile(intervals, 50) * kLongPercent / 100;
        std::vector<int64_t> timers;
        size_t row = 0;
        for (size_t i = 0; i < intervals.size(); ++i) {
            row = intervals[i] < longNs ? row + 1 : 0;
            if (row >= kTimerFrames)
                timers.push_back((mTimes[i + 1] - mTimes[i + 1 - kTimerFrames]) /
                                 static_cast<int64_t>(kTimerFrames));
        }
        return timers.empty() ? meanNearMedian(intervals) : percentile(timers, 50);
    }

    void tryMake(const Make& make) { keep(under(make)); }

    void keep(Game game) {
        const auto known = mBest.find(game.make.kind);
        if (known == mBest.end()) {
            mBest.emplace(game.make.kind, std::move(game));
        } else if (game.strangeness * kAsGood < known->second.strangeness) {
            known->second = std::move(game);
        }
    }

    // One frame for so many vsyncs, exactly: then something made it wait.
    bool isPaced() const {
        std::vector<int64_t> millionths;  // of a period
        for (size_t i = 1; i < mTimes.size(); ++i)
            millionths.push_back(
                    std::llround(1e6 * inPeriods(mTimes[i] - mTimes[i - 1], mTimes[i])));
        const double periods = static_cast<double>(percentile(std::move(millionths), 50)) / 1e6;
        return periods > 0.5 && std::abs(periods - std::round(periods)) < kExactly * periods;
    }

    double inPeriods(int64_t lengthNs, int64_t timeNs) const {
        return static_cast<double>(lengthNs) / static_cast<double>(mBeats.periodAt(timeNs));
    }

    const GameEvidence& mEvidence;
    const Beats mBeats;
    const std::vector<int64_t>& mTimes;
    std::map<Kind, Game> mBest;
};

}  // namespace

Game gameUnder(const GameEvidence& evidence, const Make& make) {
    return Guesser(evidence).under(make);
}

std::vector<Game> guessedGames(const GameEvidence& evidence) {
    return Guesser(evidence).guess();
}

}  // namespace replay
