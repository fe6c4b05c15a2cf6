// Games of known make are told from their captures, and given back by the model: as they were
// captured, and under a pacing of which everything is known.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <regex>
#include <sstream>

#include "replay/base/Statistics.h"
#include "replay/capture/ReadCapture.h"
#include "replay/plan/PlayInput.h"
#include "tests/replay/CaptureFormats.h"
#include "tests/replay/GeneratedGame.h"

namespace replay {
namespace {

constexpr double kWorkTolerance = 0.05;

// More for a campaign: CINDRAL_GAMES=250 for 2,000 games.
unsigned seedsPerMake() {
    const char* text = std::getenv("CINDRAL_GAMES");
    return text == nullptr ? 8 : static_cast<unsigned>(std::atoi(text));
}

Input inputOf(const std::string& capture) {
    MemorySource bytes{std::string_view(capture)};
    Input input;
    input.capture = readCapture(bytes, "generated");
    return input;
}

// As the model's own check, but against the truth.
Reproduction compared(const GeneratedTruth& truth, const Reproduction::Figures& modelled) {
    Reproduction comparison;
    comparison.captured = truth.figures;
    comparison.modelled = modelled;
    return comparison;
}

LayerEvents eventsOf(const Run& run, int pendingAtStart) {
    LayerEvents events;
    events.pendingAtStart = pendingAtStart;
    for (const FedEvent& event : run.fed) {
        if (event.kind == FedEvent::Kind::kQueue) events.queueTimesNs.push_back(event.dueNs);
        if (event.kind == FedEvent::Kind::kConsume)
            events.consumes.push_back({event.dueNs, static_cast<int>(event.value)});
    }
    return events;
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
    size_t mismeasured = 0;
    std::string which;
    forEachGame([&](const GeneratedGame& game) {
        const GeneratedTruth truth = generate(game);
        const Input input = inputOf(truth.ftrace);
        const Played played = playInput(input, setup);
        const Reproduction& reproduction = *played.findings.reproduction;
        // What the game was chosen by is what comes of it.
        const Reproduction::Figures figures = reproductionFigures(
                eventsOf(played.run, input.layer().pendingAtStart), played.findings.refresh);
        EXPECT_EQ(figures.framesPerSecond, reproduction.modelled.framesPerSecond) << game.name();
        EXPECT_EQ(figures.latencyP50Ns, reproduction.modelled.latencyP50Ns) << game.name();
        ++games;
        missed += reproduction.holds() ? 0 : 1;
        EXPECT_EQ(reproduction.holds(), compared(truth, reproduction.modelled).holds())
                << game.name();
        for (const Frame& frame : played.findings.frames) {
            int64_t sum = 0;
            for (const int64_t part : frame.parts) sum += part;
            if (frame.intervalNs > 0) {
                ASSERT_EQ(sum, frame.intervalNs) << game.name();
            }
        }
        const auto truth50 = static_cast<double>(truth.workP50Ns);
        const auto work50 = static_cast<double>(reproduction.workP50Ns);
        if (!game.scheduled || std::abs(work50 - truth50) <= kWorkTolerance * truth50) return;
        ++mismeasured;
        which += game.name() + ": " + reproduction.game + "\n";
    });
    EXPECT_LE(100 * missed, games) << missed << " of " << games;
    EXPECT_LE(100 * mismeasured, games) << which;
}

std::string without(const char* what, const std::string& ftrace) {
    std::string kept;
    std::istringstream lines(ftrace);
    for (std::string line; std::getline(lines, line);)
        if (line.find(what) == std::string::npos) kept += line + '\n';
    return kept;
}

// Single events or columns, wake-ups or wakings, and the three ways to who queued a buffer.
TEST(Reproduction, SchedulingInEveryForm_DividesTheFramesAlike) {
    replay::Setup setup;
    setup.withLibrary = false;
    Parts all{};
    for (int make = 0; make < GeneratedGame::kMakes; ++make) {
        GeneratedGame game = generatedGame(static_cast<GeneratedGame::Make>(make), true, 3);
        game.frames = 150;
        game.loadPercent = 60;
        const std::string text = generate(game).ftrace;
        const auto framesOf = [&](const std::string& bytes) {
            return playInput(inputOf(bytes), setup).findings.frames;
        };
        const std::vector<Frame> expected = framesOf(text);
        for (const Frame& frame : expected)
            for (size_t part = 0; part < kParts; ++part) all[part] += frame.parts[part];
        const std::pair<const char*, std::string> kForms[] = {
                {"wakings", std::regex_replace(text, std::regex("sched_wakeup"), "sched_waking")},
                {"queue calls", without("binder_", text)},
                {"wakers", without("|queueBuffer", without("binder_", text))},
                {"perfetto", perfettoOf(text, PacketPacking::kNone, false)},
                {"columns", perfettoOf(text, PacketPacking::kZstd, true)},
        };
        for (const auto& [form, bytes] : kForms) {
            const std::vector<Frame> frames = framesOf(bytes);
            ASSERT_EQ(frames.size(), expected.size()) << form;
            // The columns do not tell who ran before the first switch.
            for (size_t i = 2; i < frames.size(); ++i) {
                EXPECT_EQ(frames[i].parts, expected[i].parts) << form << ", frame " << i;
                EXPECT_EQ(frames[i].because, expected[i].because) << form << ", frame " << i;
            }
        }
    }
    for (const Part part : {Part::kBuffer, Part::kVsync, Part::kTimer, Part::kRunnable})
        EXPECT_GT(partOf(all, part), partOf(all, Part::kUnknown));
}

// With the scheduling it is known what a game would do if it were held. What it did is then told by
// the generator alone. A game that a few microseconds turn into another one tells nothing.
TEST(Reproduction, GamesOf30FramesASecond_AreToldToWaitForTheirVsync) {
    replay::Setup setup;
    setup.withLibrary = false;
    setup.model.emplace();
    for (const auto& [hz, vsync] :
         {std::pair{60, "every second"}, {90, "every third"}, {120, "every fourth"}}) {
        for (const bool scheduled : {false, true}) {
            GeneratedGame game;
            game.make = GeneratedGame::Make::kVsyncs;
            game.hz = hz;
            game.everyVsyncs = hz / 30;
            game.scheduled = scheduled;
            const Input input = inputOf(generate(game).ftrace);
            const Reproduction told = *playInput(input, setup).findings.reproduction;
            EXPECT_NE(told.game.find(vsync), std::string::npos) << hz << " Hz: " << told.game;
            EXPECT_TRUE(told.holds()) << told.describe();
        }
    }
}

TEST(Reproduction, GamesUnderAKnownPacing_DoWhatTheyWouldHaveDone) {
    replay::Setup setup;
    setup.library = CINDRAL_PACING_LIBRARY;
    setup.model.emplace();
    size_t games = 0;
    size_t missed = 0;
    std::string which;
    forEachGame([&](GeneratedGame game) {
        if (!game.scheduled) return;
        const Input input = inputOf(generate(game).ftrace);
        game.holdNs = 1'000'000'000 / game.hz * (game.seed % 3 + 1) / 8 / 1000 * 1000;
        setenv("PACING_HOLD_NS", std::to_string(game.holdNs).c_str(), 1);
        const GeneratedTruth truth = generate(game);
        game.chance = 1;
        if (!compared(truth, generate(game).figures).holds()) return;
        const Played played = playInput(input, setup);
        const Reproduction::Figures modelled = reproductionFigures(
                eventsOf(played.run, input.layer().pendingAtStart), played.findings.refresh);
        ++games;
        const Reproduction comparison = compared(truth, modelled);
        if (comparison.holds()) return;
        ++missed;
        which += game.name() + ": " + comparison.describe() + "; " +
                 played.findings.reproduction->game + "\n";
    });
    EXPECT_LE(100 * missed, games) << which;
}

}  // namespace
}  // namespace replay
