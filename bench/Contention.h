#pragma once

// Other compositor threads, each with a layer of its own, calling as fast as they can.

#include <atomic>
#include <thread>
#include <vector>

#include "bench/Scene.h"

namespace bench {

class Rivals {
  public:
    enum class Side { kNothing, kLibrary, kFloor };

    // Their layers are the scene's second tracked one, then ignored ones. They run on whichever
    // processors the calling thread may use at this moment.
    Rivals(Scene& scene, int count);
    ~Rivals();
    Rivals(const Rivals&) = delete;
    Rivals& operator=(const Rivals&) = delete;

    // What they call from now on.
    void call(Side side) { mSide = side; }

  private:
    void run(const char* layer);

    Scene& mScene;
    std::atomic<Side> mSide{Side::kNothing};
    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
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
