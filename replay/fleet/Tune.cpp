#include "replay/fleet/Tune.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Sweep.h"
#include "sim/SplitMix64.h"

namespace replay {

namespace {

constexpr double kResolution = 1e-5;  // of the objective: what is shown of it
constexpr int kResamples = 2000;
constexpr double kHarm = 0.01;
constexpr size_t kMaxRivals = 8;
constexpr size_t kRivalShare = 3;  // one in so many runs is for other worths of a boost
constexpr int kWorths[] = {0, 10, 20, 40, 80};
constexpr size_t kLooks = 10;  // at them, and between them

using Runs = std::vector<Values>;  // by capture

// Captures, and what the base makes of them.
struct Part {
    std::vector<FleetCapture> captures;
    Runs base;
};

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

    // By setting. Notes which captures they are.
    std::vector<Runs> play(std::vector<FleetCapture>& captures, const std::vector<Setup>& setups,
                           const std::string& title) {
        mSweep.captures = captures;
        mSweep.setups = setups;
        mSweep.title = title;
        makeRows(mSweep);
        captures = mSweep.captures;
        std::vector<Runs> all;
        for (const Setup& setup : setups) {
            all.emplace_back();
            for (const FleetCapture& capture : captures) {
                Row row = rowFor(mSweep, capture.hash, setup);
                all.back().push_back(mFolder.find(row) ? mObjective.valuesOf(row) : Values());
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

// Half of them, by content: the same on every machine, whatever else is in the fleet.
bool isToCheckBy(const FleetCapture& capture) {
    return std::stoul(capture.hash.substr(0, 4), nullptr, 16) % 2 == 1;
}

Setup withWorth(Setup setup, int boostSpeedupPercent) {
    setup.model->effects.boostSpeedupPercent = boostSpeedupPercent;
    setup.label += format(", boost-speedup=%d", boostSpeedupPercent);
    return setup;
}

// 0 for one value, from 1 to 2 for two.
double distance(const std::string& a, const std::string& b) {
    double from = 0;
    double to = 0;
    if (!toNumber(a, from) || !toNumber(b, to)) return a == b ? 0 : 1;
    const double between = std::abs(to - from);
    return from == to ? 0 : 1 + between / (1 + between);
}

class Tuner : public Landscape {
  public:
    explicit Tuner(const TuneOptions& options)
          : mOptions(options),
            mObjective(options.objective, options.limits),
            mGames(options, mObjective) {
        if (!mOptions.base.model) mOptions.base.model.emplace();
        for (const std::string& over : options.over) {
            mDimensions.push_back(parseDimension(over));
            // Whether a device takes them, before anything is played.
            const Dimension& added = mDimensions.back();
            for (const double share : {0.0, 1.0}) {
                changedSetup(mOptions.base, added.property + "=" + added.valueAt(share));
            }
        }
        mRivals = std::min(kMaxRivals, options.budget / kRivalShare / kLooks);
        mMayTry = options.budget - mRivals * kLooks;
    }

    Tuned run() {
        playBase();
        search(mDimensions, *this);
        rank();
        check();
        if (mRivals >= 2) findTurns();
        mTuned.objective = mObjective.text();
        for (const size_t figure : mObjective.figures()) {
            mTuned.figures.emplace_back(figures()[figure].label);
        }
        return mTuned;
    }

    std::vector<double> changesOf(const std::vector<Choice>& choices) override {
        std::vector<TriedSetting> unknown;
        for (const Choice& choice : choices) {
            TriedSetting setting = settingOf(choice);
            if (unknown.size() >= left()) break;
            const size_t next = mTuned.tried.size() + unknown.size();
            if (mByOptions.emplace(setting.options, next).second) unknown.push_back(setting);
        }
        add(std::move(unknown));
        std::vector<double> changes;
        for (const Choice& choice : choices) {
            const auto known = mByOptions.find(settingOf(choice).options);
            changes.push_back(known == mByOptions.end() ? HUGE_VAL
                                                        : mTuned.tried[known->second].change);
        }
        return changes;
    }

    size_t left() const override { return mMayTry - std::min(mMayTry, mTuned.tried.size()); }

  private:
    void playBase() {
        std::vector<FleetCapture> captures = mOptions.captures;
        const Runs base = mGames.play(captures, {mOptions.base}, "base").front();
        std::set<std::string> known;
        for (size_t i = 0; i < captures.size(); ++i) {
            if (base[i].empty()) {
                ++mTuned.left;
            } else if (known.insert(captures[i].hash).second) {
                Part& part = isToCheckBy(captures[i]) ? mToCheck : mToChoose;
                part.captures.push_back(captures[i]);
                part.base.push_back(base[i]);
            }
        }
        // One has to be chosen by, and is then no check.
        if (mToChoose.base.empty()) std::swap(mToChoose, mToCheck);
        if (mToChoose.base.empty()) {
            throw InputError("no capture can be played under the base; try one by itself");
        }
        mTuned.choosing = mToChoose.base.size();
        const std::string options = mGames.optionsOf(mOptions.base);
        mByOptions[options] = 0;
        mTuned.tried.push_back({mOptions.base, {}, options, 0, 0, Objective::mean(mToChoose.base)});
    }

    TriedSetting settingOf(const Choice& choice) const {
        const auto& properties = mOptions.base.settings.properties();
        TriedSetting setting;
        setting.choice = choice;
        std::string changes;
        for (size_t i = 0; i < choice.size(); ++i) {
            const std::string& property = mDimensions[i].property;
            changes += (i > 0 ? ", " : "") + property + "=" + choice[i];
            const auto before = properties.find(property);
            setting.distance +=
                    before == properties.end() ? 2 : distance(before->second, choice[i]);
        }
        setting.setup = changedSetup(mOptions.base, changes);
        setting.options = mGames.optionsOf(setting.setup);
        return setting;
    }

    void add(std::vector<TriedSetting> settings) {
        const size_t before = mTuned.tried.size();
        const std::string title = format("settings %zu to %zu of at most %zu", before + 1,
                                         before + settings.size(), mMayTry);
        std::vector<Setup> setups;
        for (const TriedSetting& setting : settings) setups.push_back(setting.setup);
        const std::vector<Runs> all = mGames.play(mToChoose.captures, setups, title);
        for (size_t i = 0; i < settings.size(); ++i) {
            settings[i].change = mObjective.change(mToChoose.base, all[i]);
            settings[i].means = Objective::mean(all[i]);
            mTuned.tried.push_back(std::move(settings[i]));
        }
    }

    void rank() {
        const auto shown = [](const TriedSetting& one) {
            return std::llround(one.change / kResolution);
        };
        auto& tried = mTuned.tried;
        std::stable_sort(tried.begin(), tried.end(), [&](const auto& a, const auto& b) {
            return std::make_tuple(shown(a), a.distance) < std::make_tuple(shown(b), b.distance);
        });
        while (!tried[mTuned.base].choice.empty()) ++mTuned.base;
        while (mTuned.ties + 1 < tried.size() && shown(tried[mTuned.ties + 1]) == shown(tried[0])) {
            ++mTuned.ties;
        }
    }

    void check() {
        const Setup& best = mTuned.best().setup;
        noteHarm(mToChoose, mGames.play(mToChoose.captures, {best}, "best").front());
        if (!mToCheck.base.empty()) {
            const Runs runs =
                    mGames.play(mToCheck.captures, {best}, "captures to check by").front();
            noteHarm(mToCheck, runs);
            mTuned.unseen = effectOf(mToCheck.base, runs);
        }
        std::sort(mTuned.harmed.begin(), mTuned.harmed.end(), [](const auto& a, const auto& b) {
            return std::tie(b.change, a.name) < std::tie(a.change, b.name);
        });
        const bool isConfirmed = mTuned.unseen.captures >= kLeastUnseen && mTuned.unseen.most < 0;
        mTuned.keepsBase = mTuned.base == 0 || !isConfirmed;
    }

    void noteHarm(const Part& part, const Runs& best) {
        for (size_t i = 0; i < part.captures.size(); ++i) {
            const double change = mObjective.change({part.base[i]}, {best[i]});
            if (change > kHarm) mTuned.harmed.push_back({part.captures[i].name, change});
        }
    }

    // By a fixed sequence of draws, so that an answer can be had again.
    Effect effectOf(const Runs& base, const Runs& best) const {
        std::vector<double> changes;
        uint64_t draws = 0;
        for (int i = 0; i < kResamples; ++i) {
            Runs before;
            Runs after;
            for (size_t j = 0; j < base.size(); ++j) {
                const size_t drawn = sim::splitMix64(draws) % base.size();
                before.push_back(base[drawn]);
                after.push_back(best[drawn]);
            }
            changes.push_back(mObjective.change(before, after));
        }
        std::sort(changes.begin(), changes.end());
        const size_t outside = changes.size() / 40;  // on either side
        return {base.size(), mObjective.change(base, best), changes[outside],
                changes[changes.size() - 1 - outside]};
    }

    // The base, the best, and for each third of a range and value of a list the best that is there.
    std::vector<Setup> rivals() const {
        std::vector<Setup> rivals{mOptions.base};
        std::set<Choice> places;
        for (const TriedSetting& tried : mTuned.tried) {
            if (rivals.size() == mRivals) break;
            Choice place = tried.choice;
            for (size_t i = 0; i < place.size(); ++i) {
                const Dimension& range = mDimensions[i];
                if (!range.isRange()) continue;
                const double share =
                        (std::stod(place[i]) - range.least) / (range.most - range.least);
                place[i] = format("%d", static_cast<int>(share * 2.999));
            }
            const bool isNew = !place.empty() && places.insert(place).second;
            if (isNew) rivals.push_back(tried.setup);
        }
        return rivals;
    }

    // Who wins at that worth.
    Turn lookAt(int worth, const std::vector<Setup>& rivals) {
        std::vector<Setup> setups;
        for (const Setup& rival : rivals) setups.push_back(withWorth(rival, worth));
        const std::vector<Runs> all =
                mGames.play(mToChoose.captures, setups, format("boosts worth %d %%", worth));
        const size_t best = mTuned.base == 0 ? 0 : 1;
        const double bestChange = mObjective.change(all[0], all[best]);
        Turn turn{worth, mTuned.best().setup.label, bestChange, bestChange};
        for (size_t i = 0; i < all.size(); ++i) {
            const double change = mObjective.change(all[0], all[i]);
            if (change > turn.change - kResolution) continue;
            turn.setting = rivals[i].label;
            turn.change = change;
        }
        ++mLooks;
        mTuned.mostWorth = std::max(mTuned.mostWorth, worth);
        return turn;
    }

    void findTurns() {
        const std::vector<Setup> list = rivals();
        const int assumed = mOptions.base.model->effects.boostSpeedupPercent;
        const std::vector<int> worths(std::begin(kWorths), std::end(kWorths));
        const auto above = std::upper_bound(worths.begin(), worths.end(), assumed);
        const auto below = std::lower_bound(worths.begin(), worths.end(), assumed);
        findTurn({std::make_reverse_iterator(below), worths.rend()}, assumed, list);
        findTurn({above, worths.end()}, assumed, list);
    }

    // The first worth on the way through these at which another setting wins, but not at the one
    // before it.
    void findTurn(const std::vector<int>& worths, int stays, const std::vector<Setup>& list) {
        const std::string& best = mTuned.best().setup.label;
        for (const int worth : worths) {
            if (mLooks == kLooks) return;
            Turn turn = lookAt(worth, list);
            while (turn.setting != best && std::abs(turn.boostSpeedupPercent - stays) > 1 &&
                   mLooks < kLooks) {
                const Turn between = lookAt((stays + turn.boostSpeedupPercent) / 2, list);
                if (between.setting == best) {
                    stays = between.boostSpeedupPercent;
                } else {
                    turn = between;
                }
            }
            if (turn.setting != best) return mTuned.turns.push_back(turn);
            stays = worth;
        }
    }

    TuneOptions mOptions;
    const Objective mObjective;
    Games mGames;
    std::vector<Dimension> mDimensions;
    Part mToChoose;
    Part mToCheck;
    std::map<std::string, size_t> mByOptions;  // in `tried`, until it is ranked
    size_t mRivals = 0;                        // with the base
    size_t mLooks = 0;
    size_t mMayTry = 0;
    Tuned mTuned;
};

}  // namespace

Tuned tune(const TuneOptions& options) {
    return Tuner(options).run();
}

}  // namespace replay
