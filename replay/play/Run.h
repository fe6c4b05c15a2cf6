#pragma once

// What happened when something was played: plain data, from which all findings are made.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "replay/game/Road.h"
#include "replay/play/EventLog.h"

namespace replay {

// One call of the compositor into the library. It is delivered late if its thread was still held by
// the call before. Times are ns since the first event of the capture.
struct FedEvent {
    enum class Kind { kInit, kVsyncPeriod, kQueue, kConsume, kVsync };
    static constexpr int kKinds = 5;

    Kind kind = Kind::kInit;
    int thread = 0;
    int64_t dueNs = 0;
    int64_t deliveredNs = 0;
    int64_t returnedNs = 0;
    int64_t value = 0;  // kInit: the answer; kVsyncPeriod: ns; kConsume: buffers pending

    int64_t heldNs() const { return returnedNs - deliveredNs; }
    int64_t lateNs() const { return deliveredNs - dueNs; }
};

const char* toString(FedEvent::Kind kind);

// How a frame came about.
struct FrameRoad {
    Parts parts{};           // of the interval since the frame before
    int64_t heldBackNs = 0;  // by so much it began later than if the one before had not been held
};

// What went in and what came out, each in the order it happened.
struct Run {
    std::vector<FedEvent> fed;
    EventLog seen;                         // the library's calls, log lines and markers
    std::vector<std::string> threadNames;  // by FedEvent::thread and device::Event::thread
    int64_t endNs = 0;                     // the library was unloaded
    bool withLibrary = true;
    bool modelled = false;  // the game and the compositor reacted; otherwise all came as captured
    std::vector<FrameRoad> roads;  // of a modelled run, by frame
    // What the user chose, in words, for whoever reads the results.
    std::vector<std::pair<std::string, std::string>> conditions;

    std::string threadName(int thread) const;
};

}  // namespace replay
