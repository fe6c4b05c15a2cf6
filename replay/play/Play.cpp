#include "replay/play/Play.h"

#include <memory>

#include "replay/base/Error.h"
#include "replay/play/Playback.h"
#include "sim/Simulation.h"

namespace replay {

namespace {

// What the run may take before it counts as hanging: far more than the library needs for one event.
constexpr uint64_t kStepsPerEvent = 20'000;
constexpr int64_t kOverrunNs = 60'000'000'000;
// Of the library; a guess.
constexpr size_t kSeenPerEvent = 8;

void prepareDevice(const Settings& settings, const std::string& package) {
    device::StandInDevice& device = device::StandInDevice::instance();
    device.reset(settings.properties(), {package});
    device.setTraceTags(device::StandInDevice::kTraced);
    device.setThreadLabeller(sim::currentThread);
}

sim::Options simulationOptions(const Playback& session, int64_t cpuCostNs) {
    sim::Options options;
    options.startTimeNs = Playback::kOriginNs - Playback::kLeadNs;
    options.cpuCostPerCallNs = cpuCostNs;
    options.stepBudget = (session.eventCount() + 1) * kStepsPerEvent;
    options.timeBudgetNs = session.lengthNs() + kOverrunNs;
    options.abortOnFailure = false;
    options.record = false;
    return options;
}

}  // namespace

Run play(const LayerEvents& layer, const VsyncTrack& vsyncs, const Settings& settings,
         const PlayOptions& options) {
    Run run;
    run.withLibrary = options.withLibrary;
    run.modelled = options.model.has_value();
    run.seen.setOrigin(Playback::kOriginNs);
    auto session = run.modelled ? makeModelledPlayback(layer, vsyncs, options)
                                : makeCapturedPlayback(layer, vsyncs, options);
    if (options.withLibrary) run.seen.reserve(session->eventCount() * kSeenPerEvent);
    prepareDevice(settings, layer.name.package);
    device::StandInDevice::instance().setEventSink([&](const device::Event& event) {
        session->onSeen(event);
        run.seen.push_back(event);
    });
    const sim::Outcome outcome = sim::run(simulationOptions(*session, options.cpuCostPerCallNs),
                                          [&] { session->run(); });
    device::StandInDevice::instance().setEventSink(nullptr);
    if (!outcome.ok()) {
        session.release();  // its threads still use it
        throw ReplayError(outcome.report);
    }
    session->checkLibrary();
    run.roads = session->takeRoads();
    run.fed = session->takeEvents();
    for (const sim::ThreadRecord& thread : outcome.threads) run.threadNames.push_back(thread.name);
    run.endNs = outcome.endTimeNs - Playback::kOriginNs;
    return run;
}

}  // namespace replay
