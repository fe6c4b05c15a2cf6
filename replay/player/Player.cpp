#include "replay/player/Player.h"

#include <pthread.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "replay/Error.h"
#include "replay/player/CindralLibrary.h"
#include "replay/player/Feedback.h"
#include "sim/Simulation.h"

namespace replay {

namespace {

// The capture's first event happens at this virtual time; the library is loaded shortly before.
constexpr int64_t kOriginNs = 1'000'000'000'000;
constexpr int64_t kLeadNs = 1'000'000;

// What the run may take before it counts as hanging: far more than the library needs for one event.
constexpr uint64_t kStepsPerEvent = 20'000;
constexpr int64_t kOverrunNs = 60'000'000'000;

// How closely a game that runs ahead notices in the closed loop that it may go on.
constexpr int64_t kFreeBufferPollNs = 100'000;

// The answers of a device on which the library's features are available to a game.
constexpr int kFeatureKnobs[] = {5, 6, 7};
constexpr int kVerdictGame = 2;
constexpr int kGameWeight = 1;
constexpr uint64_t kTraceTagAlways = 1;
constexpr uint64_t kTraceTagGraphics = 2;

void prepareDevice(const Settings& settings, const std::string& package) {
    standin::Device& device = standin::Device::instance();
    device.reset();
    for (const auto& [name, value] : settings.properties()) device.setProperty(name, value);
    for (const int knob : kFeatureKnobs) device.setKnob(knob, 1);
    device.setVerdict(package, kVerdictGame);
    device.setGameWeight(package, kGameWeight);
    device.setTraceTags(kTraceTagAlways | kTraceTagGraphics);
    device.setThreadLabeller([] { return sim::currentThread(); });
}

// The compositor of one run. run() is the simulation's body; every other function runs on the
// thread that is named before it, and each thread writes only its own list of events.
class Session {
  public:
    Session(const LayerEvents& layer, const VsyncTrack& vsyncs, const PlayOptions& options)
          : mLayer(layer), mVsyncs(vsyncs), mOptions(options), mQueue(layer) {}

    void run() {
        pthread_setname_np(pthread_self(), "replay");
        try {
            mLibrary = std::make_unique<CindralLibrary>(mOptions.library);
        } catch (const std::runtime_error& error) {
            mError = error.what();
            return;
        }
        std::thread compositor(&Session::compositor, this);
        std::thread producer(&Session::producer, this);
        std::thread vsync(&Session::vsync, this);
        compositor.join();
        producer.join();
        vsync.join();
        mLibrary.reset();  // its threads are joined in virtual time
    }

    void checkLibrary() const {
        if (!mError.empty()) throw InputError("--library: " + mError);
    }

    std::vector<FedEvent> takeEvents() {
        std::vector<FedEvent> all;
        for (std::vector<FedEvent>* list : {&mCompositorEvents, &mProducerEvents, &mVsyncEvents}) {
            all.insert(all.end(), list->begin(), list->end());
        }
        std::stable_sort(all.begin(), all.end(), [](const FedEvent& a, const FedEvent& b) {
            return a.deliveredNs < b.deliveredNs;
        });
        return all;
    }

  private:
    void compositor() {
        pthread_setname_np(pthread_self(), "compositor");
        std::vector<FedEvent>& events = mCompositorEvents;
        deliver(events, FedEvent::Kind::kInit, -kLeadNs,
                [&] { events.back().value = mLibrary->init(); });
        deliver(events, FedEvent::Kind::kVsyncPeriod, -kLeadNs, [&] {
            events.back().value = mVsyncs.periodNs;
            mLibrary->setVsyncPeriod(static_cast<long>(mVsyncs.periodNs));
        });
        if (mOptions.closedLoop) {
            consumeWhatIsThere();
        } else {
            for (const ConsumeEvent& event : mLayer.consumes) consume(event.timeNs, event.pending);
        }
    }

    void consumeWhatIsThere() {
        for (const ConsumeChance& chance : consumeChances(mLayer, mVsyncs)) {
            sim::sleepUntil(kOriginNs + chance.timeNs);
            const std::optional<int> pending = mQueue.consume(chance.captured);
            if (pending) consume(chance.timeNs, *pending);
        }
    }

    void consume(int64_t timeNs, int pending) {
        deliver(mCompositorEvents, FedEvent::Kind::kConsume, timeNs, [&] {
            mCompositorEvents.back().value = pending;
            mLibrary->trackBufferDecrement(mLayer.name.layer.c_str(), pending);
        });
    }

    void producer() {
        pthread_setname_np(pthread_self(), "producer");
        const std::vector<int64_t> renderNs = renderTimesNs(mLayer);
        for (size_t i = 0; i < mLayer.queueTimesNs.size(); ++i) {
            if (mOptions.closedLoop && isBehind()) renderAgain(renderNs[i]);
            deliver(mProducerEvents, FedEvent::Kind::kQueue, mLayer.queueTimesNs[i], [&] {
                mQueue.queue();
                mLibrary->trackBufferIncrement(mLayer.name.layer.c_str());
            });
        }
    }

    bool isBehind() const {
        if (mProducerEvents.empty()) return false;
        return mProducerEvents.back().lateNs() > 0 || mProducerEvents.back().heldNs() > 0;
    }

    // A game renders into a free buffer.
    void renderAgain(int64_t renderNs) const {
        const int64_t endNs = kOriginNs + mVsyncs.timesNs.back();
        while (mQueue.isFull() && sim::now() < endNs) sim::sleepFor(kFreeBufferPollNs);
        sim::sleepFor(renderNs);
    }

    void vsync() {
        pthread_setname_np(pthread_self(), "vsync");
        for (const int64_t timeNs : mVsyncs.timesNs) {
            deliver(mVsyncEvents, FedEvent::Kind::kVsync, timeNs,
                    [&] { mLibrary->trackVsyncSignal(); });
        }
    }

    template <typename Call>
    static void deliver(std::vector<FedEvent>& events, FedEvent::Kind kind, int64_t dueNs,
                        Call&& call) {
        sim::sleepUntil(kOriginNs + dueNs);
        FedEvent event;
        event.kind = kind;
        event.thread = sim::currentThread();
        event.dueNs = dueNs;
        event.deliveredNs = sim::now() - kOriginNs;
        events.push_back(event);
        call();
        events.back().returnedNs = sim::now() - kOriginNs;
    }

    const LayerEvents& mLayer;
    const VsyncTrack& mVsyncs;
    const PlayOptions mOptions;
    BufferQueue mQueue;
    const standin::ServiceLibraries mServices;
    std::unique_ptr<CindralLibrary> mLibrary;
    std::vector<FedEvent> mCompositorEvents;
    std::vector<FedEvent> mProducerEvents;
    std::vector<FedEvent> mVsyncEvents;
    std::string mError;  // why the library could not be opened
};

sim::Options simulationOptions(const LayerEvents& layer, const VsyncTrack& vsyncs,
                               int64_t cpuCostNs) {
    const size_t events = layer.queueTimesNs.size() + layer.consumes.size() + vsyncs.timesNs.size();
    sim::Options options;
    options.startTimeNs = kOriginNs - kLeadNs;
    options.cpuCostPerCallNs = cpuCostNs;
    options.stepBudget = (events + 1) * kStepsPerEvent;
    options.timeBudgetNs = (vsyncs.timesNs.empty() ? 0 : vsyncs.timesNs.back()) + kOverrunNs;
    options.abortOnFailure = false;
    return options;
}

std::vector<standin::Event> seenEvents() {
    std::vector<standin::Event> events = standin::Device::instance().events();
    for (standin::Event& event : events) event.timeNs -= kOriginNs;
    return events;
}

}  // namespace

const char* toString(FedEvent::Kind kind) {
    static constexpr const char* kNames[FedEvent::kKinds] = {"init", "vsync-period", "queue",
                                                             "consume", "vsync"};
    return kNames[static_cast<int>(kind)];
}

std::string Run::threadName(int thread) const {
    const auto index = static_cast<size_t>(thread);
    if (index < threadNames.size() && !threadNames[index].empty()) return threadNames[index];
    return "thread-" + std::to_string(thread);
}

Run play(const LayerEvents& layer, const VsyncTrack& vsyncs, const Settings& settings,
         const PlayOptions& options) {
    prepareDevice(settings, layer.name.package);
    auto session = std::make_unique<Session>(layer, vsyncs, options);
    const sim::Outcome outcome = sim::run(
            simulationOptions(layer, vsyncs, options.cpuCostPerCallNs), [&] { session->run(); });
    if (!outcome.ok()) {
        session.release();  // its threads still use it
        throw ReplayError(outcome.report);
    }
    session->checkLibrary();
    Run run;
    run.fed = session->takeEvents();
    run.seen = seenEvents();
    for (const sim::ThreadRecord& thread : outcome.threads) run.threadNames.push_back(thread.name);
    run.endNs = outcome.endTimeNs - kOriginNs;
    return run;
}

}  // namespace replay
