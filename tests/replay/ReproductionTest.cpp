// Games of known make are told from their captures, and given back by the model: as they were
// captured, and under a pacing of which everything is known.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "replay/base/Statistics.h"
#include "replay/capture/ReadCapture.h"
#include "replay/plan/PlayInput.h"
#include "tests/replay/GeneratedGame.h"

namespace replay {
namespace {

constexpr double kWorkTolerance = 0.05;

// More for a campaign: CINDRAL_GAMES=250 for 2,000 games.
unsigned seedsPerMake() {
    const char* text = std::getenv("CINDRAL_GAMES");
    return text == nullptr ? 8 : static_cast<unsigned>(std::atoi(text));
}

Input inputOf(const GeneratedTruth& truth) {
    MemorySource bytes{std::string_view(truth.ftrace)};
    Input input;
    input.capture = readCapture(bytes, "generated");
    return input;
}

Reproduction::Figures figuresOf(const GeneratedTruth& truth) {
    return {truth.framesPerSecond, truth.lateFrames, truth.stutters, truth.latencyP50Ns};
}

// As the model's own check, but against the truth.
bool givesBack(const GeneratedTruth& truth, const Reproduction::Figures& modelled) {
    Reproduction comparison;
    comparison.captured = figuresOf(truth);
    comparison.modelled = modelled;
    return comparison.holds();
}

template <typename Use>
void forEachGame(Use&& use) {
    for (int make = 0; make < GeneratedGame::kMakes; ++make)
        for (const bool scheduled : {false, true})
            for (unsigned seed = 1; seed <= seedsPerMake(); ++seed)
                use(generatedGame(static_cast<GeneratedGame::Make>(make), scheduled, seed));
}

TEST(Reproduction, GeneratedGames_AreGivenBackOrSaidNotToBe) {
    replay::Setup setup;
    setup.withLibrary = false;
    setup.model.emplace();
    size_t games = 0;
    size_t missed = 0;
    forEachGame([&](const GeneratedGame& game) {
        const GeneratedTruth truth = generate(game);
        const Played played = playInput(inputOf(truth), setup);
        const Reproduction& reproduction = *played.findings.reproduction;
        ++games;
        missed += reproduction.holds() ? 0 : 1;
        EXPECT_EQ(reproduction.holds(), givesBack(truth, reproduction.modelled)) << game.name();
        for (const Frame& frame : played.findings.frames) {
            int64_t sum = 0;
            for (const int64_t part : frame.parts) sum += part;
            if (frame.intervalNs > 0) {
                ASSERT_EQ(sum, frame.intervalNs) << game.name();
            }
        }
        if (!game.scheduled) return;
        EXPECT_NEAR(static_cast<double>(reproduction.workP50Ns),
                    static_cast<double>(truth.workP50Ns),
                    kWorkTolerance * static_cast<double>(truth.workP50Ns))
                << game.name() << ": " << reproduction.game;
    });
    EXPECT_LE(100 * missed, games) << missed << " of " << games;
}

// With the scheduling it is known what a game would do if it were held. What it did is then told by
// the generator alone.
TEST(Reproduction, GamesUnderAKnownPacing_DoWhatTheyWouldHaveDone) {
    replay::Setup setup;
    setup.library = CINDRAL_PACING_LIBRARY;
    setup.model.emplace();
    size_t games = 0;
    size_t missed = 0;
    std::string which;
    forEachGame([&](GeneratedGame game) {
        if (!game.scheduled) return;
        const Input input = inputOf(generate(game));
        game.holdNs = 1'000'000'000 / game.hz * (game.seed % 3 + 1) / 8 / 1000 * 1000;
        setenv("PACING_HOLD_NS", std::to_string(game.holdNs).c_str(), 1);
        const GeneratedTruth truth = generate(game);
        const Played played = playInput(input, setup);
        const Reproduction::Figures modelled =
                reproductionFigures(input.layer(), played.findings.refresh, played.run);
        ++games;
        if (givesBack(truth, modelled)) return;
        ++missed;
        Reproduction comparison;
        comparison.captured = figuresOf(truth);
        comparison.modelled = modelled;
        which += game.name() + ": " + comparison.describe() + "; " +
                 played.findings.reproduction->game + "\n";
    });
    EXPECT_LE(20 * missed, games) << which;
}

}  // namespace
}  // namespace replay
