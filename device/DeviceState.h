#pragma once

#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "device/StandInDevice.h"
#include "sim/Unseen.h"

namespace device {

// What the StandInDevice holds, shared with the Backend.
class StandInDevice::State {
  public:
    // Everything that StandInDevice::reset() returns to its beginning.
    struct Content {
        std::map<std::string, std::string> properties;
        std::map<int, int> knobs;
        std::map<std::string, int> verdicts;
        std::map<std::string, int> gameWeights;
        double halVersion = 2.3;
        std::array<int64_t, kEntryPointCount> delayNs{};
        std::set<int> heldHandles;
        int nextHandle = 1;
        std::vector<Event> events;
    };

    // Stamps the event with time and thread and keeps it or hands it on. Requires `lock`, so that
    // the order of the records is the order of their times.
    void record(Event&& event);

    // Innermost lock: nothing else is locked and nobody sleeps while it is held.
    sim::UnseenLock<std::mutex> lock;
    Content content;                         // guarded by lock
    std::function<int()> labeller;           // guarded by lock; empty: the kernel's thread id
    std::function<void(const Event&)> sink;  // guarded by lock; empty: kept in content
    // Not under the lock: a client asks at every marker, traced or not.
    std::atomic<uint64_t> traceTags{0};
};

}  // namespace device
