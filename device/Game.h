#pragma once

// A playing game as the library sees it: what a compositor calls until the library regulates its
// layers.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "device/CindralLibrary.h"

namespace device {

// Layers that play in step. One thread at a time. Waits by CLOCK_MONOTONIC: in real time, or in
// virtual time inside a simulation.
class Game {
  public:
    Game(const CindralLibrary& library, std::vector<std::string> layers, int64_t periodNs);

    // Initialises the library, tells it the period, and queues a first buffer of each layer. After
    // each, `classified` waits until the library knows what it is; without one, for long enough in
    // virtual time. Returns whether the library is active.
    bool start(const std::function<void()>& classified = {}) const;

    // Plays on, with a buffer of each layer a period, until `built` says that the environments are
    // there, which takes a second at the right rate. The last buffers are queued and not consumed.
    // Returns false if they are not there after a minute and a half.
    bool playUntil(const std::function<bool()>& built) const;

    // Lets buffers of the first layer accumulate until its headroom regulator goes on; none is
    // pending in the end.
    void startPacing() const;

  private:
    void queue() const;
    void consume() const;

    const CindralLibrary& mLibrary;
    const std::vector<std::string> mLayers;
    const int64_t mPeriodNs;
};

}  // namespace device
