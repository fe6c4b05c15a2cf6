// A phone around the toy: its service libraries with every feature switched on and one known game.
// Says at the end what the library asked of it. On a real phone none of this exists.

#include <cstdio>

#include "device/StandInDevice.h"

namespace {

class Phone {
  public:
    Phone() {
        device::StandInDevice::instance().reset(
                {{"vendor.perf.pfar2.enable", "1"}, {"vendor.perf.phr.enable", "1"}},
                {"com.example.game"});
    }

    ~Phone() {
        int hints = 0;
        size_t calls = 0;
        for (const device::Event& event : device::StandInDevice::instance().events()) {
            ++calls;
            if (event.entryPoint == device::EntryPoint::kPerfHint) ++hints;
        }
        std::printf("%zu service calls, %d of them hints\n", calls, hints);
    }

  private:
    device::ServiceLibraries mLibraries;
};

// Before main, so that the library finds the phone when it initialises.
const Phone phone;

}  // namespace
