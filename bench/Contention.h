#pragma once

// What other compositor threads do meanwhile.

#include <atomic>
#include <thread>

#include "bench/Scene.h"

namespace bench {

// Another compositor thread with a layer of its own, the scene's second tracked one. It pauses for up to
// 2 us between two calls: two threads in nothing but locks would hand them to each other by the kernel.
// It runs on whichever processors the thread that constructs it may use at this moment.
class Rival {
  public:
    enum class Side { kNothing, kLibrary, kFloor };

    explicit Rival(Scene& scene);
    ~Rival();
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;

    // What it calls from now on.
    void call(Side side) { mSide = side; }

  private:
    void run();

    Scene& mScene;
    std::atomic<Side> mSide{Side::kNothing};
    std::atomic<bool> mStop{false};
    std::thread mThread;
};

// A producer of the first layer, held by its headroom regulator almost all of the time: nobody
// releases it, so each of its calls lasts a vsync period.
class HeldProducer {
  public:
    explicit HeldProducer(Scene& scene);
    ~HeldProducer();
    HeldProducer(const HeldProducer&) = delete;
    HeldProducer& operator=(const HeldProducer&) = delete;

    // Throws std::runtime_error if the regulator has let it go.
    void check() const;

  private:
    std::atomic<bool> mStop{false};
    std::atomic<bool> mHeld{true};
    std::thread mThread;
};

// Lets the calling thread use every processor, and then again only the one it is pinned to.
class EveryProcessor {
  public:
    EveryProcessor();
    ~EveryProcessor();
    EveryProcessor(const EveryProcessor&) = delete;
    EveryProcessor& operator=(const EveryProcessor&) = delete;
};

// Pins the calling thread, and those it starts, to the processor it is on.
void pinToOneProcessor();

}  // namespace bench
