#pragma once

// The shipped library on the stand-in device, brought into the state in which a path is measured.

#include <cstdint>
#include <memory>

#include "device/CindralLibrary.h"
#include "device/Game.h"
#include "device/StandInDevice.h"

namespace bench {

inline constexpr long kPeriodNs = 16'666'667;  // 60 Hz

// CLOCK_MONOTONIC, ns.
int64_t nowNs();

struct SceneOptions {
    bool initialised = true;
    int trackers = 0;  // game layers that are tracked
    // What is on. With any of them the one tracked layer's environment exists, which takes a second.
    bool frameRegulator = false;
    bool headroom = false;
    bool power = false;
    bool headroomThread = false;  // runs; otherwise nobody is woken

    bool hasEnvironment() const { return frameRegulator || headroom || power; }
};

// One at a time. Constructed and destroyed by the thread that measures. The ignore list is full, as
// on a phone with its system layers.
class Scene {
  public:
    // Throws std::runtime_error when the library does not get into that state.
    explicit Scene(const SceneOptions& options);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    const device::CindralLibrary& library() const { return *mLibrary; }

    // Names as the platform gives them, short and long.
    static const char* layer(int tracker);
    static const char* ignoredLayer(int index);
    static constexpr int kIgnoredLayers = 4;

    // To be called at least every 100 ms while increments come faster than frames: a measuring
    // period that closes with such a rate would switch the regulators off. Costs a pause of 151 ms
    // every 700 ms.
    void keepMeasuring();

    // A vsync, its headroom timer, and the release. Needs the headroom thread.
    void release();

  private:
    void configureDevice();
    void buildEnvironment(const device::Game& game);

    const SceneOptions mOptions;
    device::ServiceLibraries mServices;
    std::unique_ptr<device::CindralLibrary> mLibrary;
    int64_t mMeasuringSince = 0;
};

}  // namespace bench
