#include "replay/fleet/Tune.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Objective.h"
#include "replay/fleet/Search.h"
#include "replay/fleet/Sweep.h"
#include "replay/plan/Jobs.h"

namespace replay {

namespace {

constexpr const char* kDefaultObjective[] = {"repeated_vsyncs", "latency_p50_ms", "negative_s"};
constexpr int kResamples = 2000;
constexpr double kHarm = 0.01;
constexpr double kLeastGain = 1e-6;  // of the objective; less is arithmetic
constexpr size_t kMaxRivals = 8;
constexpr double kRivalShare = 0.25;  // of the runs, for other worths of a boost
constexpr int kWorths[] = {0, 10, 20, 40, 80};
constexpr int kHalvings = 3;
constexpr size_t kLooks = std::size(kWorths) + kHalvings;

// A fixed sequence, so that an answer can be had again; the standard distributions differ between
// libraries.
class Draws {
  public:
    size_t below(size_t count) {
        mState = mState * 6364136223846793005u + 1442695040888963407u;
        return static_cast<size_t>((mState >> 33) % count);
    }

  private:
    uint64_t mState = 20;
};

using Runs = std::vector<Values>;  // by capture

// Plays settings to captures and gives what the objective asks for. What was played once, by this
// search or any other, is not played again.
class Games {
  public:
    Games(const TuneOptions& options, const Objective& objective)
          : mObjective(objective), mFolder(options.rows) {
        mSweep.input = options.input;
        mSweep.library = buildOf(options.base.library);
        mSweep.folder = options.rows;
        mSweep.jobs = options.jobs;
    }

    std::vector<Runs> play(const std::vector<FleetCapture>& captures,
                           const std::vector<Setup>& setups, const std::string& title) {
        mSweep.captures = captures;
        mSweep.setups = setups;
        mSweep.title = title;
        makeRows(mSweep);
        std::vector<Runs> all;
        for (const Setup& setup : setups) {
            all.emplace_back();
            for (const FleetCapture& capture : captures) {
                const auto row = mFolder.find(rowFor(mSweep, capture.hash, setup));
                all.back().push_back(row ? mObjective.valuesOf(*row) : Values());
            }
        }
        return all;
    }

    std::string optionsOf(const Setup& setup) const { return rowFor(mSweep, "", setup).options; }

  private:
    const Objective& mObjective;
    RowFolder mFolder;
    Sweep mSweep;
};

// Reads every capture once, to know which it is. Complains of those that cannot be read.
std::vector<FleetCapture> withHashes(std::vector<FleetCapture> captures, unsigned jobs) {
    std::vector<Job> list;
    for (const FleetCapture& capture : captures) {
        list.emplace_back([&capture] { return hashOfFile(capture.path); });
    }
    const std::vector<JobResult> results = runJobs(list, jobs);
    std::set<std::string> known;
    std::vector<FleetCapture> good;
    for (size_t i = 0; i < captures.size(); ++i) {
        if (!results[i].error.empty())
            complain(captures[i].name + ": left out: " + results[i].error);
        if (!results[i].error.empty() || !known.insert(results[i].output).second) continue;
        captures[i].hash = results[i].output;
        good.push_back(captures[i]);
    }
    return good;
}

// Half of them, by content: the same on every machine, whatever else is in the fleet.
bool isToCheckBy(const FleetCapture& capture) {
    return std::stoul(capture.hash.substr(0, 4), nullptr, 16) % 2 == 1;
}

Setup withAssignments(const Setup& base, const std::vector<Dimension>& dimensions,
                      const Point& point) {
    std::string changes;
    for (size_t i = 0; i < dimensions.size(); ++i) {
        changes += (changes.empty() ? "" : ", ") + dimensions[i].assignmentAt(point[i]);
    }
    return changedSetup(base, changes);
}

Setup withWorth(Setup setup, int boostSpeedupPercent) {
    setup.model->effects.boostSpeedupPercent = boostSpeedupPercent;
    setup.label += format(", boost-speedup=%d", boostSpeedupPercent);
    return setup;
}

class Tuner : public Landscape {
  public:
    explicit Tuner(const TuneOptions& options)
          : mOptions(options),
            mObjective(levelsOf(options), options.limits),
            mGames(options, mObjective) {
        if (!mOptions.base.model) mOptions.base.model.emplace();
        for (const std::string& over : options.over) {
            mDimensions.push_back(parseDimension(over));
            // Whether a device takes them, before anything is played.
            for (const double share : {0.0, 1.0}) {
                changedSetup(mOptions.base, mDimensions.back().assignmentAt(share));
            }
        }
        const double forRivals = kRivalShare * static_cast<double>(options.budget);
        mRivals = std::min(kMaxRivals, static_cast<size_t>(forRivals) / kLooks);
        mMaySearch = options.budget - mRivals * kLooks;
    }

    Tuned run() {
        split();
        tryBase();
        search(mDimensions, *this);
        sortTried();
        check();
        findTurns();
        mTuned.objective = mObjective.text();
        for (const size_t figure : mObjective.figures()) {
            mTuned.figures.emplace_back(figures()[figure].label);
        }
        return mTuned;
    }

    std::vector<double> changesAt(const std::vector<Point>& points) override {
        std::vector<Setup> unknown;
        std::vector<std::string> labels;
        for (const Point& point : points) {
            const Setup setup = withAssignments(mOptions.base, mDimensions, point);
            labels.push_back(setup.label);
            if (mByLabel.count(setup.label) != 0 || unknown.size() >= left()) continue;
            mByLabel[setup.label] = mTuned.tried.size() + unknown.size();
            mPoints[setup.label] = point;
            unknown.push_back(setup);
        }
        add(unknown);
        std::vector<double> changes;
        for (const std::string& label : labels) {
            const auto known = mByLabel.find(label);
            changes.push_back(known == mByLabel.end() ? 0 : mTuned.tried[known->second].change);
        }
        return changes;
    }

    size_t left() const override { return mMaySearch - std::min(mMaySearch, mTuned.tried.size()); }

  private:
    static std::vector<std::string> levelsOf(const TuneOptions& options) {
        if (!options.objective.empty()) return options.objective;
        return {std::begin(kDefaultObjective), std::end(kDefaultObjective)};
    }

    void split() {
        const std::vector<FleetCapture> captures = withHashes(mOptions.captures, mOptions.jobs);
        mTuned.left = mOptions.captures.size() - captures.size();
        for (const FleetCapture& capture : captures) {
            (isToCheckBy(capture) ? mToCheck : mToChoose).push_back(capture);
        }
        // One has to be chosen by, and is then no check.
        if (mToChoose.empty()) std::swap(mToChoose, mToCheck);
        if (mToChoose.empty()) throw InputError("no capture can be read");
        mTuned.choosing = mToChoose.size();
    }

    void tryBase() {
        mBaseRuns = mGames.play(mToChoose, {mOptions.base}, "base").front();
        const auto failed = std::count(mBaseRuns.begin(), mBaseRuns.end(), Values());
        if (failed == static_cast<ptrdiff_t>(mBaseRuns.size())) {
            throw InputError("no capture can be played under the base; try one by itself");
        }
        mTuned.left += static_cast<size_t>(failed);
        mTuned.tried.push_back(
                {mOptions.base, mGames.optionsOf(mOptions.base), 0, meansOf(mBaseRuns)});
    }

    std::vector<double> meansOf(const Runs& runs) const {
        std::vector<double> means;
        for (size_t i = 0; i < mObjective.figures().size(); ++i) {
            means.push_back(Objective::mean(runs, i));
        }
        return means;
    }

    void add(const std::vector<Setup>& setups) {
        const std::string title =
                format("settings %zu to %zu of at most %zu", mTuned.tried.size() + 1,
                       mTuned.tried.size() + setups.size(), mMaySearch);
        const std::vector<Runs> all = mGames.play(mToChoose, setups, title);
        for (size_t i = 0; i < setups.size(); ++i) {
            mTuned.tried.push_back({setups[i], mGames.optionsOf(setups[i]),
                                    mObjective.change(mBaseRuns, all[i]), meansOf(all[i])});
        }
    }

    // Of equal ones the base comes first, then what was tried first.
    void sortTried() {
        std::stable_sort(
                mTuned.tried.begin(), mTuned.tried.end(),
                [](const auto& a, const auto& b) { return a.change < b.change - kLeastGain; });
        while (mTuned.tried[mTuned.base].setup.label != mOptions.base.label) ++mTuned.base;
    }

    void check() {
        const Setup& best = mTuned.best().setup;
        noteHarm(mToChoose, mBaseRuns, mGames.play(mToChoose, {best}, "best").front());
        if (!mToCheck.empty()) {
            const std::vector<Runs> runs =
                    mGames.play(mToCheck, {mOptions.base, best}, "captures to check by");
            noteHarm(mToCheck, runs[0], runs[1]);
            mTuned.unseen = effectOf(runs[0], runs[1]);
        }
        std::sort(mTuned.harmed.begin(), mTuned.harmed.end(), [](const auto& a, const auto& b) {
            return a.change != b.change ? a.change > b.change : a.name < b.name;
        });
        const bool isConfirmed = mTuned.unseen.captures >= kLeastUnseen && mTuned.unseen.most < 0;
        mTuned.keepsBase = mTuned.base == 0 || !isConfirmed;
    }

    void noteHarm(const std::vector<FleetCapture>& captures, const Runs& base, const Runs& best) {
        for (size_t i = 0; i < captures.size(); ++i) {
            if (base[i].empty()) continue;
            const double change = mObjective.change({base[i]}, {best[i]});
            if (change > kHarm) mTuned.harmed.push_back({captures[i].name, change});
        }
    }

    Effect effectOf(const Runs& base, const Runs& best) const {
        Effect effect{base.size(), mObjective.change(base, best), 0, 0};
        std::vector<double> changes;
        Draws draws;
        for (int i = 0; i < kResamples; ++i) {
            Runs before;
            Runs after;
            for (size_t j = 0; j < base.size(); ++j) {
                const size_t drawn = draws.below(base.size());
                before.push_back(base[drawn]);
                after.push_back(best[drawn]);
            }
            changes.push_back(mObjective.change(before, after));
        }
        std::sort(changes.begin(), changes.end());
        effect.least = changes[changes.size() / 40];
        effect.most = changes[changes.size() - 1 - changes.size() / 40];
        return effect;
    }

    // The best, the base, and for each dimension the best of those that are elsewhere in it.
    std::vector<Setup> rivals() const {
        std::vector<Setup> rivals{mTuned.best().setup};
        if (mTuned.base != 0) rivals.push_back(mOptions.base);
        std::set<std::string> places;
        for (const TriedSetting& tried : mTuned.tried) {
            const auto point = mPoints.find(tried.setup.label);
            if (point == mPoints.end() || tried.setup.label == rivals[0].label) continue;
            if (rivals.size() >= mRivals) break;
            std::string place;
            for (size_t i = 0; i < mDimensions.size(); ++i) {
                const bool isRange = mDimensions[i].count() == 0;
                place += isRange ? format("%d ", static_cast<int>(point->second[i] * 2.999))
                                 : mDimensions[i].valueAt(point->second[i]) + " ";
            }
            if (places.insert(place).second) rivals.push_back(tried.setup);
        }
        return rivals;
    }

    struct AtWorth {
        size_t winner = 0;  // of the rivals
        Turn turn;
    };

    AtWorth lookAt(int worth, const std::vector<Setup>& rivals) {
        std::vector<Setup> setups{withWorth(mOptions.base, worth)};
        for (const Setup& rival : rivals) setups.push_back(withWorth(rival, worth));
        const std::vector<Runs> all =
                mGames.play(mToChoose, setups, format("boosts worth %d %%", worth));
        AtWorth found;
        std::vector<double> changes;
        for (size_t i = 1; i < all.size(); ++i) {
            changes.push_back(mObjective.change(all[0], all[i]));
            if (changes.back() < changes[found.winner] - kLeastGain) found.winner = i - 1;
        }
        found.turn = {worth, rivals[found.winner].label, changes[found.winner], changes[0]};
        return found;
    }

    void findTurns() {
        const std::vector<Setup> list = rivals();
        if (mRivals < 2 || list.size() < 2) return;
        const int assumed = mOptions.base.model->effects.boostSpeedupPercent;
        int staysUntil = assumed;
        for (const int worth : kWorths) {
            if (worth == assumed) continue;
            mTuned.worths.push_back(worth);
            const AtWorth at = lookAt(worth, list);
            if (worth < assumed && at.winner != 0) {
                mTuned.turns.assign(1, at.turn);  // of several below the nearest counts
            } else if (at.winner != 0) {
                mTuned.turns.push_back(turnBetween(staysUntil, at.turn, list));
                return;
            }
            staysUntil = std::max(staysUntil, worth);
        }
    }

    // The least worth that is known to turn the answer, which does not turn at `stays` yet.
    Turn turnBetween(int stays, Turn turn, const std::vector<Setup>& rivals) {
        for (int i = 0; i < kHalvings && turn.boostSpeedupPercent - stays > 1; ++i) {
            const AtWorth at = lookAt((stays + turn.boostSpeedupPercent) / 2, rivals);
            if (at.winner == 0) {
                stays = (stays + turn.boostSpeedupPercent) / 2;
            } else {
                turn = at.turn;
            }
        }
        return turn;
    }

    TuneOptions mOptions;
    const Objective mObjective;
    Games mGames;
    std::vector<Dimension> mDimensions;
    std::vector<FleetCapture> mToChoose;
    std::vector<FleetCapture> mToCheck;
    Runs mBaseRuns;
    std::map<std::string, size_t> mByLabel;  // in `tried`, until it is sorted
    std::map<std::string, Point> mPoints;    // by label
    size_t mRivals = 0;
    size_t mMaySearch = 0;
    Tuned mTuned;
};

}  // namespace

Tuned tune(const TuneOptions& options) {
    return Tuner(options).run();
}

}  // namespace replay
