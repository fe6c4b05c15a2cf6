#include "tests/reliability/Surroundings.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>

#include <map>
#include <optional>

#include "device/StandInDevice.h"
#include "sim/Simulation.h"

using device::StandInDevice;

namespace reliability {

namespace {

// As on a phone; and the C library keeps enough of these for the next run, where larger ones would be
// mapped anew.
constexpr size_t kStackBytes = 1 << 20;

}  // namespace

void setMood(int mood) {
    StandInDevice& device = StandInDevice::instance();
    for (const char* package : {"com.example.game", "com.example.other", "com.example.third",
                                "com.example.fresh", "com.example.fresher"}) {
        device.setVerdict(package, (mood & 4) == 0 ? 2 : 1);
        device.setGameWeight(package, (mood & 1) == 0 ? 1 : 0);
    }
    device.setHalVersion((mood & 2) == 0 ? 2.3 : 2.2);
}

void configure(const CallProgram& program) {
    StandInDevice& device = StandInDevice::instance();
    std::map<std::string, std::string> properties;
    const auto letItSwitchOn = [&](char feature, const char* property) {
        if (program.has(feature)) properties[property] = "1";
    };
    letItSwitchOn('g', "vendor.perf.pfar2.enable");
    letItSwitchOn('p', "vendor.perf.phr.enable");
    letItSwitchOn('d', "vendor.perf.cindral.debug");
    letItSwitchOn('n', "vendor.perf.pfar2.hgpe.enable");
    device.reset(properties, {"com.example.light"});
    device.setGameWeight("com.example.light", 0);
    device.setThreadLabeller(sim::currentThread);
    if (program.has('t')) device.setTraceTags(StandInDevice::kTraced);
    setMood(0);
}

void useSmallStacks() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

// Complete ones stay open, as opening them takes its time.
void openServices(const std::vector<std::string>& without) {
    static std::optional<device::ServiceLibraries> sOpen;
    static bool sComplete = false;
    if (sOpen && sComplete && without.empty()) return;
    sOpen.reset();
    sOpen.emplace(without);
    sComplete = without.empty();
}

}  // namespace reliability

// Closing a library takes the loader's lock, which the simulation does not see: a thread that waits
// for it would stand outside the model. So it is taken inside first. It nests with everything, so
// it is tried, which the check of the lock order leaves out.
extern "C" int dlclose(void* library) noexcept {
    static auto* const sReal = reinterpret_cast<int (*)(void*)>(dlsym(RTLD_NEXT, "dlclose"));
    static pthread_mutex_t sLoader = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    if (!sim::inSimulation()) return sReal(library);
    while (pthread_mutex_trylock(&sLoader) != 0) sched_yield();
    const int result = sReal(library);
    pthread_mutex_unlock(&sLoader);
    return result;
}
