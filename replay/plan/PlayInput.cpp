#include "replay/plan/PlayInput.h"

#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/plan/ChooseGame.h"
#include "replay/play/Play.h"
#include "replay/play/Workloads.h"

namespace replay {

namespace {

constexpr double kDefaultRefreshHz = 60;
constexpr double kMinRefreshHz = 1;
constexpr double kMaxRefreshHz = 1000;
constexpr int kDefaultBuffers = 3;

// A display of the rate, running since time 0.
VsyncTrack displayOf(double refreshHz, int64_t durationNs) {
    if (!(refreshHz >= kMinRefreshHz && refreshHz <= kMaxRefreshHz)) {
        throw InputError(format("--refresh %g: give a rate from %g to %g Hz", refreshHz,
                                kMinRefreshHz, kMaxRefreshHz));
    }
    VsyncTrack track;
    track.periodNs = std::llround(1e9 / refreshHz);
    track.timesNs = continueVsyncs({}, track, 0, durationNs);
    track.source = "--refresh";
    return track;
}

// The modelled game can be put on another display than the one it was captured on.
VsyncTrack vsyncsOf(const Input& input, const Setup& setup) {
    if (!input.workload.empty()) {
        VsyncTrack track = displayOf(setup.refreshHz.value_or(kDefaultRefreshHz), 0);
        if (!setup.refreshHz) track.source = "the usual rate";
        return track;
    }
    if (setup.model && setup.refreshHz) {
        return displayOf(*setup.refreshHz, input.capture.durationNs);
    }
    return vsyncTrack(input.capture, setup.refreshHz);
}

// The display the capture was made on, if it tells.
VsyncTrack capturedVsyncs(const Input& input, const VsyncTrack& played) {
    try {
        return vsyncTrack(input.capture, std::nullopt);
    } catch (const InputError&) {
        return played;
    }
}

ModelOptions workloadModel(const Input& input, const ModelChoice& choice,
                           const VsyncTrack& played) {
    ModelOptions model;
    model.make.buffers = choice.buffers.value_or(kDefaultBuffers);
    for (const int64_t workNs : workloadNs(input.workload, played.periodNs, input.frames))
        model.work.push_back({workNs});
    model.latchDelayNs = usualLatchDelayNs(input.layer(), played);
    return model;
}

// What the capture shows is what its game did on its display, whatever it is played on now.
ModelOptions capturedModel(const Input& input, const ModelChoice& choice, const VsyncTrack& played,
                           std::optional<Reproduction>& reproduction) {
    const VsyncTrack captured = capturedVsyncs(input, played);
    ChosenGame game = chooseGame(input.capture, input.layer(), captured, choice);
    reproduction = game.reproduction;
    if (choice.buffers) game.model.make.buffers = *choice.buffers;
    if (captured.timesNs != played.timesNs) game.model.latchDelaysNs.clear();
    game.model.latchDelayNs = std::min(game.model.latchDelayNs, played.periodNs / 2);
    return std::move(game.model);
}

ModelOptions modelOptions(const Input& input, const ModelChoice& choice, const VsyncTrack& played,
                          std::optional<Reproduction>& reproduction) {
    ModelOptions model = input.workload.empty() ? capturedModel(input, choice, played, reproduction)
                                                : workloadModel(input, choice, played);
    model.effects = choice.effects;
    return model;
}

std::string effectText(int percent, const char* what) {
    return percent == 0 ? "none assumed" : format("%d %% %s", percent, what);
}

void addModel(Run& run, const Input& input, const ModelChoice& choice, const ModelOptions& model,
              const std::optional<Reproduction>& reproduction) {
    const std::string work =
            input.workload.empty() ? "work " + choice.work.name() : "workload " + input.workload;
    run.conditions.emplace_back(
            "game", format("modelled: %s (median %.3f ms), %s, latch %.3f ms after vsync",
                           work.c_str(), toMs(medianWorkNs(model.work)),
                           model.make.describe().c_str(), toMs(model.latchDelayNs)));
    if (reproduction) {
        run.conditions.emplace_back(
                "told by", reproduction->measured ? "the capture's scheduling"
                                                  : "trying, as the capture has only counters");
        run.conditions.emplace_back("runner-up", reproduction->runnerUp);
        run.conditions.emplace_back("reproduced", reproduction->describe());
    }
    run.conditions.emplace_back("boost effect",
                                effectText(choice.effects.boostSpeedupPercent, "faster work"));
    run.conditions.emplace_back(
            "negative boost effect",
            effectText(choice.effects.negativeSlowdownPercent, "of its strength as longer work"));
}

void addConditions(Run& run, const Setup& setup) {
    if (!run.modelled)
        run.conditions.emplace_back("game", "as captured, whatever the library does");
    if (!setup.withLibrary) {
        run.conditions.emplace_back("library", "none");
        return;
    }
    for (const auto& [name, value] : setup.settings.properties()) {
        run.conditions.emplace_back(name, value);
    }
    if (setup.cpuCostNs != 0) {
        run.conditions.emplace_back("cost of a blocking call", msText(setup.cpuCostNs));
    }
}

}  // namespace

Played playInput(const Input& input, const Setup& setup) {
    const VsyncTrack vsyncs = vsyncsOf(input, setup);
    PlayOptions options;
    options.library = setup.library;
    options.withLibrary = setup.withLibrary;
    options.cpuCostPerCallNs = setup.cpuCostNs;
    Played played;
    std::optional<Reproduction> reproduction;
    if (setup.model) options.model = modelOptions(input, *setup.model, vsyncs, reproduction);
    played.run = play(input.layer(), vsyncs, setup.settings, options);
    if (setup.model) addModel(played.run, input, *setup.model, *options.model, reproduction);
    addConditions(played.run, setup);
    for (const auto& note : input.notes) played.run.conditions.push_back(note);
    played.findings = findingsOf(input.capture, input.layer(), vsyncs, played.run);
    played.findings.reproduction = reproduction;
    return played;
}

}  // namespace replay
