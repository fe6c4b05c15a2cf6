// The makes that are tried, and those that the capture tells.

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

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
// Of a long capture makes are tried on so many stretches.
constexpr size_t kStretches = 16;
constexpr size_t kTriedFrames = kStretches * 128;
constexpr int64_t kLongPercent = 150;
constexpr double kSupposed[] = {0, 0.002, 0.003, 0};

// Frames, from the first to the one behind the last.
using Stretch = std::pair<size_t, size_t>;

class Guesser {
  public:
    explicit Guesser(const GameEvidence& evidence)
          : mEvidence(evidence),
            mBeats(evidence.vsyncs),
            mTimes(evidence.layer.queueTimesNs),
            mIntervals(differences(mTimes)),
            mIsPaced(isPaced()) {}

    std::vector<Game> guess() {
        if (mTimes.empty()) return {};
        for (const int buffers : mEvidence.buffers) {
            mFree = freeTimesNs(mEvidence.layer, buffers);
            keep({Kind::kBuffer, buffers});
            tryVsyncs(buffers);
            tryTimer(buffers);
        }
        std::vector<Game> games;
        for (const auto& [kind, best] : mBest) games.push_back(under(best.make));
        std::stable_sort(games.begin(), games.end(), [](const Game& a, const Game& b) {
            return a.strangeness < b.strangeness;
        });
        return games;
    }

    // What must have been work if the game is of that make.
    Game under(const Make& make) {
        mFree = freeTimesNs(mEvidence.layer, make.buffers);
        return under(make, {{0, mTimes.size()}});
    }

  private:
    struct Best {
        Make make;
        double strangeness = 0;
    };

    // The same of some stretches, and of the first frame. `mFree` is for the make's buffers.
    Game under(const Make& make, const std::vector<Stretch>& stretches) const {
        Game game;
        game.make = make;
        game.work.emplace_back();
        std::vector<size_t> frames = {0};
        const auto& [begin, end] = stretches.front();
        game.work.reserve(stretches.size() * (end - begin));
        size_t waited = 0;
        double strange = 0;
        for (const auto& [first, end] : stretches) {
            // Of what came before nothing is known: a timer that has just run out leaves half of
            // the time to the work.
            int64_t lastNs = mTimes[first] - make.timerNs / 2;
            for (size_t i = first + 1; i < end; ++i) {
                FrameWork frame;
                const int64_t latestNs = mTimes[i] - kMinWorkNs;
                int64_t ready = readyNs(make, mBeats, frame, mTimes[i - 1], lastNs);
                if (std::max(ready, mFree[i]) > latestNs) strange += 1;
                if (ready > latestNs && make.kind == Kind::kVsync) {
                    const int64_t periodNs = mBeats.periodAt(mTimes[i]);
                    frame.passedVsyncs = -(ready - latestNs + periodNs - 1) / periodNs;
                    ready = readyNs(make, mBeats, frame, mTimes[i - 1], lastNs);
                }
                const int64_t begin = std::max(ready, mFree[i]);
                frame.workNs = std::max(mTimes[i] - begin, kMinWorkNs);
                game.work.push_back(frame);
                frames.push_back(i);
                if (begin > mTimes[i - 1]) ++waited;
                lastNs = std::min(ready, latestNs);
            }
        }
        finish(game, frames, waited, strange);
        return game;
    }

    void finish(Game& game, const std::vector<size_t>& frames, size_t waited,
                double strange) const {
        const Make& make = game.make;
        std::vector<int64_t> times;
        for (size_t i = 1; i < frames.size(); ++i) times.push_back(game.work[i].workNs);
        const int64_t median = percentile(std::move(times), 50);
        game.work.front().workNs = std::max(std::min(mTimes.front(), median), kMinWorkNs);
        // The model has the first frame begin so long before it was queued.
        if (make.kind == Kind::kTimer && game.work.size() > 1)
            game.work[1].timerNs = make.timerNs - make.timerNs / 2 + game.work.front().workNs;
        for (size_t i = 0; i < frames.size(); ++i) {
            const int64_t offNs = std::abs(game.work[i].workNs - median);
            strange += std::min(1.0, inPeriods(offNs, mTimes[frames[i]]));
        }
        const bool coincidence = kFewWait * waited < frames.size() && mIsPaced;
        game.strangeness = (coincidence ? kCoincidence : 0) +
                           kSupposed[static_cast<size_t>(make.kind)] +
                           strange / static_cast<double>(frames.size());
    }

    // Nearly two hundred makes are tried, so each on so many frames only, of all the capture.
    double strangenessOf(const Make& make) const {
        std::vector<Stretch> stretches;
        const size_t count = mTimes.size() > kTriedFrames ? kStretches : 1;
        const size_t length = std::min(mTimes.size(), kTriedFrames) / count;
        for (size_t i = 0; i < count; ++i) {
            const size_t first = i * (mTimes.size() - length) / std::max<size_t>(count - 1, 1);
            stretches.emplace_back(first, first + length);
        }
        return under(make, stretches).strangeness;
    }

    void tryVsyncs(int buffers) {
        for (const int every : vsyncsAFrame(mEvidence.layer, mEvidence.vsyncs)) {
            for (const bool takesMissed : {false, true}) {
                Make make{Kind::kVsync, buffers};
                make.everyVsyncs = every;
                make.takesMissed = takesMissed;
                for (const int64_t periodNs : mEvidence.vsyncs.periodsNs())
                    make.phases.push_back({periodNs, 0});
                // First as much of each rate's period, then each for itself.
                const size_t rates = make.phases.size();
                fitPhases(make, 0, rates);
                for (size_t i = 0; rates > 1 && i < rates; ++i) fitPhases(make, i, i + 1);
                keep(make);
            }
        }
    }

    void fitPhases(Make& make, size_t begin, size_t end) const {
        const auto setTo = [&](int phase) {
            for (size_t rate = begin; rate < end; ++rate)
                make.phases[rate].phaseNs = make.phases[rate].periodNs * phase / kPhases;
        };
        std::vector<double> strangeness;
        for (int i = 0; i < kPhases; ++i) {
            setTo(i);
            strangeness.push_back(strangenessOf(make));
        }
        setTo(middleOf(strangeness));
    }

    // Neighbouring phases often explain the capture as well: the middle of the longest row of them.
    static int middleOf(const std::vector<double>& strangeness) {
        const double limit = kAsGood * *std::min_element(strangeness.begin(), strangeness.end());
        size_t longest = 0;
        size_t middle = 0;
        size_t row = 0;
        for (size_t i = 0; i < 2 * strangeness.size(); ++i) {
            row = strangeness[i % strangeness.size()] <= limit ? row + 1 : 0;
            if (row <= longest || row > strangeness.size()) continue;
            longest = row;
            middle = (i - row / 2) % strangeness.size();
        }
        return static_cast<int>(middle);
    }

    void tryTimer(int buffers) {
        Make make{Kind::kTimer, buffers};
        make.timerNs = timerNs();
        if (make.timerNs > 0) keep(make);
    }

    // Over many frames what their work varies by hardly matters, if none of them was held up.
    int64_t timerNs() const {
        const int64_t longNs = percentile(mIntervals, 50) * kLongPercent / 100;
        std::vector<int64_t> timers;
        size_t row = 0;
        for (size_t i = 0; i < mIntervals.size(); ++i) {
            row = mIntervals[i] < longNs ? row + 1 : 0;
            if (row >= kTimerFrames)
                timers.push_back((mTimes[i + 1] - mTimes[i + 1 - kTimerFrames]) /
                                 static_cast<int64_t>(kTimerFrames));
        }
        return timers.empty() ? meanNearMedian(mIntervals) : percentile(timers, 50);
    }

    void keep(const Make& make) {
        const Best game{make, strangenessOf(make)};
        const auto [known, isNew] = mBest.emplace(make.kind, game);
        if (!isNew && game.strangeness * kAsGood < known->second.strangeness) known->second = game;
    }

    // One frame for so many vsyncs, exactly, or in a beat of its own: then something made it wait.
    bool isPaced() const {
        const double periods = periodsAFrame(mEvidence.layer, mEvidence.vsyncs);
        const bool exactly = std::abs(periods - std::round(periods)) < kExactly * periods;
        return (periods > 0.5 && exactly) || makesUpForFrames();
    }

    // A timer gives back to a frame what the one before was late; work alone does not. Then half of
    // each deviation comes back with the other sign.
    bool makesUpForFrames() const {
        const int64_t median = percentile(mIntervals, 50);
        double together = 0;
        double alone = 0;
        for (size_t i = 1; i < mIntervals.size(); ++i) {
            const int64_t before = mIntervals[i - 1] - median;
            const int64_t after = mIntervals[i] - median;
            if (4 * std::max(std::abs(before), std::abs(after)) > median) continue;  // a hitch
            together += static_cast<double>(before) * static_cast<double>(after);
            alone += static_cast<double>(before) * static_cast<double>(before);
        }
        return together < -0.25 * alone && together > -0.75 * alone;
    }

    double inPeriods(int64_t lengthNs, int64_t timeNs) const {
        return static_cast<double>(lengthNs) / static_cast<double>(mBeats.periodAt(timeNs));
    }

    const GameEvidence& mEvidence;
    const Beats mBeats;
    const std::vector<int64_t>& mTimes;
    const std::vector<int64_t> mIntervals;
    const bool mIsPaced;
    std::vector<int64_t> mFree;  // the buffers, see freeTimesNs()
    std::map<Kind, Best> mBest;
};

}  // namespace

Game gameUnder(const GameEvidence& evidence, const Make& make) {
    return Guesser(evidence).under(make);
}

std::vector<Game> guessedGames(const GameEvidence& evidence) {
    return Guesser(evidence).guess();
}

}  // namespace replay
