#include "replay/plan/ChooseGame.h"

#include <algorithm>
#include <set>

#include "replay/base/Text.h"
#include "replay/play/Unheld.h"

namespace replay {

namespace {

class Choice {
  public:
    Choice(const Capture& capture, const LayerEvents& layer, const VsyncTrack& vsyncs,
           const ModelChoice& choice)
          : mCapture(capture),
            mLayer(layer),
            mVsyncs(vsyncs),
            mChoice(choice),
            mFigures(reproductionFigures(layer, vsyncs)),
            mLatchDelaysNs(latchDelaysNs(layer, vsyncs)),
            mLatchDelayNs(usualLatchDelayNs(layer, vsyncs)) {}

    ChosenGame choose() {
        const int producer = producerOf(mLayer, mCapture.scheduling);
        const std::vector<Road> roads = roadsOf(mLayer, mCapture.scheduling, producer);
        std::vector<Game> games = gamesOf({mLayer, mVsyncs, mCapture.scheduling, roads, producer,
                                           buffersOf(mLayer, mCapture.scheduling)});
        std::vector<ChosenGame> tried;
        std::set<Make::Kind> holding;
        for (Game& game : games) {
            tried.push_back(tryGame(std::move(game)));
            if (tried.back().reproduction.holds()) holding.insert(tried.back().model.make.kind);
            // Whatever comes later is neither chosen nor the runner-up.
            if (holding.size() > 1) break;
        }
        // The first that holds, as they come by what the capture tells; if none does, the nearest.
        std::stable_sort(tried.begin(), tried.end(), [](const auto& a, const auto& b) {
            return rank(a.reproduction) < rank(b.reproduction);
        });
        ChosenGame& chosen = tried.front();
        const auto other = std::find_if(tried.begin(), tried.end(), [&](const ChosenGame& game) {
            return game.model.make.kind != chosen.model.make.kind;
        });
        if (other != tried.end()) chosen.reproduction.runnerUp = asRunnerUp(other->reproduction);
        return std::move(chosen);
    }

  private:
    static double rank(const Reproduction& reproduction) {
        return reproduction.holds() ? 0 : reproduction.distance();
    }

    static std::string asRunnerUp(const Reproduction& other) {
        return other.game + (other.holds() ? ", which gives back the capture, too"
                                           : ", which misses " + other.misses().front());
    }

    ChosenGame tryGame(Game game) const {
        ChosenGame tried;
        tried.model.make = game.make;
        tried.model.work = std::move(game.work);
        tried.model.firstQueuedNs = mLayer.queueTimesNs.front();
        tried.model.latchDelaysNs = mLatchDelaysNs;
        tried.model.latchDelayNs = mLatchDelayNs;
        applyEstimator(mChoice.work, mLayer, mVsyncs.periodNs, tried.model.work);
        Reproduction& reproduction = tried.reproduction;
        reproduction.captured = mFigures;
        reproduction.modelled =
                reproductionFigures(playUnheld(mLayer, mVsyncs, tried.model), mVsyncs);
        reproduction.game = game.make.describe();
        reproduction.measured = game.measured;
        reproduction.workP50Ns = medianWorkNs(tried.model.work);
        return tried;
    }

    const Capture& mCapture;
    const LayerEvents& mLayer;
    const VsyncTrack& mVsyncs;
    const ModelChoice& mChoice;
    const Reproduction::Figures mFigures;
    const std::vector<int64_t> mLatchDelaysNs;
    const int64_t mLatchDelayNs;
};

}  // namespace

ChosenGame chooseGame(const Capture& capture, const LayerEvents& layer, const VsyncTrack& captured,
                      const ModelChoice& choice) {
    return Choice(capture, layer, captured, choice).choose();
}

}  // namespace replay
