// A library in the place of the real one that holds every queue call for as long as the environment
// says: pacing of which everything is known.

#include <time.h>

#include <cstdlib>

#define ENTRY_POINT extern "C" __attribute__((visibility("default")))

ENTRY_POINT bool cindralInit() {
    return true;
}
ENTRY_POINT void cindralSetVsyncPeriod(long) {}
ENTRY_POINT void cindralTrackBufferIncrement(const char*) {
    const timespec hold = {0, std::atol(std::getenv("PACING_HOLD_NS"))};
    nanosleep(&hold, nullptr);
}
ENTRY_POINT void cindralTrackBufferDecrement(const char*, int) {}
ENTRY_POINT void cindralTrackVsyncSignal() {}

namespace android {
__attribute__((visibility("default"))) void clearConfigs() {}
}  // namespace android
