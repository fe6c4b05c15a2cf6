#pragma once

// The shipped library on the stand-in device, brought into the state in which a path is measured.

#include <memory>
#include <string>
#include <vector>

#include "bench/Floor.h"
#include "device/CindralLibrary.h"
#include "device/StandInDevice.h"

namespace bench {

inline constexpr long kPeriodNs = 16'666'667;  // 60 Hz

enum class LibraryThreads {
    kNone,      // nobody is woken
    kHeadroom,  // only the headroom regulator's, its timer run out at once
    kAll,
};

struct SceneOptions {
    bool initialised = true;
    bool frameRegulator = true;
    bool headroom = false;
    bool power = false;
    int trackers = 0;          // game layers that are tracked
    bool environment = false;  // and whose environment exists; needs a second
    LibraryThreads threads = LibraryThreads::kNone;
    bool floorThread = true;    // with kAll: the floors wake a thread as well
    bool ignoredLayers = true;  // the ignore list is full, as on a phone with its system layers
};

// Sets the stand-in device up for such a scene, and nothing else.
void configureDevice(const SceneOptions& options);

// One at a time. Constructed and destroyed by the thread that measures.
class Scene {
  public:
    // Throws std::runtime_error when the library does not get into that state.
    explicit Scene(const SceneOptions& options);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    device::CindralLibrary& library() { return *mLibrary; }

    // Names as the platform gives them, short and long.
    static const char* layer(int tracker);
    static const char* ignoredLayer(int index);
    static constexpr int kIgnoredLayers = 4;

    // To be called at least every 100 ms while increments of the last tracked layer come faster
    // than frames: a measuring
    // period that closes with such a rate would switch the regulators off. Costs a pause of 151 ms
    // every 700 ms.
    void keepMeasuring();

    // A vsync, its headroom timer, and the release. Needs LibraryThreads::kHeadroom.
    void release();

  private:
    void fillIgnoreList();
    void trackLayers();
    void buildEnvironments();
    void activateHeadroom();

    const SceneOptions mOptions;
    device::ServiceLibraries mServices;
    std::unique_ptr<device::CindralLibrary> mLibrary;
    std::unique_ptr<floor::Waiter> mWaiter;  // the floor's part of LibraryThreads::kAll
    int64_t mMeasuringSince = 0;
};

}  // namespace bench
