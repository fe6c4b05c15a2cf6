#include "replay/play/Playback.h"

#include <pthread.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <thread>

#include "replay/base/Error.h"

namespace replay {

Playback::Playback(const LayerEvents& layer, const VsyncTrack& vsyncs, const PlayOptions& options)
      : mLayer(layer), mVsyncs(vsyncs), mOptions(options) {}

void Playback::run() {
    pthread_setname_np(pthread_self(), "replay");
    try {
        if (mOptions.withLibrary)
            mLibrary = std::make_unique<device::CindralLibrary>(mOptions.library);
    } catch (const std::runtime_error& error) {
        mError = error.what();
        return;
    }
    std::thread compositor(&Playback::compositor, this);
    std::thread producer([this] {
        pthread_setname_np(pthread_self(), "producer");
        produce();
    });
    std::thread vsync([this] {
        pthread_setname_np(pthread_self(), "vsync");
        beat();
    });
    compositor.join();
    producer.join();
    vsync.join();
    mLibrary.reset();  // its threads are joined in virtual time
}

void Playback::checkLibrary() const {
    if (!mError.empty()) throw InputError("--library: " + mError);
}

std::vector<FedEvent> Playback::takeEvents() {
    std::vector<FedEvent> all;
    all.reserve(mCompositorEvents.size() + mProducerEvents.size() + mVsyncEvents.size());
    for (std::vector<FedEvent>* list : {&mCompositorEvents, &mProducerEvents, &mVsyncEvents}) {
        const auto middle = static_cast<ptrdiff_t>(all.size());
        all.insert(all.end(), list->begin(), list->end());
        *list = {};
        std::inplace_merge(
                all.begin(), all.begin() + middle, all.end(),
                [](const FedEvent& a, const FedEvent& b) { return a.deliveredNs < b.deliveredNs; });
    }
    return all;
}

void Playback::compositor() {
    pthread_setname_np(pthread_self(), "compositor");
    std::vector<FedEvent>& events = mCompositorEvents;
    deliver(events, FedEvent::Kind::kInit, -kLeadNs, [&] {
        if (mLibrary) events.back().value = mLibrary->init();
    });
    tellPeriod(-kLeadNs, mVsyncs.periodNs);
    compose();
}

void Playback::tellPeriod(int64_t timeNs, int64_t periodNs) {
    deliver(mCompositorEvents, FedEvent::Kind::kVsyncPeriod, timeNs, [&] {
        mCompositorEvents.back().value = periodNs;
        if (mLibrary) mLibrary->setVsyncPeriod(static_cast<long>(periodNs));
    });
}

void Playback::tellRates(int64_t untilNs) {
    for (; mRatesTold < mVsyncs.changes.size(); ++mRatesTold) {
        const RateChange& change = mVsyncs.changes[mRatesTold];
        if (change.timeNs > untilNs) return;
        tellPeriod(change.timeNs, change.periodNs);
    }
}

void Playback::consumeAt(int64_t timeNs, int pending) {
    tellRates(timeNs);
    deliver(mCompositorEvents, FedEvent::Kind::kConsume, timeNs, [&] {
        mCompositorEvents.back().value = pending;
        if (mLibrary) mLibrary->trackBufferDecrement(mLayer.name.layer.c_str(), pending);
    });
}

void Playback::vsyncAt(int64_t timeNs) {
    deliver(mVsyncEvents, FedEvent::Kind::kVsync, timeNs, [&] {
        if (mLibrary) mLibrary->trackVsyncSignal();
    });
}

}  // namespace replay
