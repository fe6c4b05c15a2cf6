// A month of one device in virtual time: whether what a frame costs, and what the library keeps,
// grows with uptime, frames and layers seen.
//
// month_of_play [DAYS]: ten minutes of a game a day, each day a new layer of one of several packages
// and other layers around it, the rest of the day nothing. One JSON object a line, one line a day.

#include <time.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "device/CindralLibrary.h"
#include "device/StandInDevice.h"
#include "sim/Simulation.h"
#include "tests/reliability/Memory.h"
#include "tests/reliability/Player.h"

namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kSecond = 1'000 * kMs;
constexpr int64_t kDayNs = 24 * 3600 * kSecond;
constexpr int64_t kPeriodNs = 16'666'667;
constexpr int kFramesPerDay = 36'000;
constexpr int kPackages = 7;
constexpr int kDays = 30;

std::string package(int day) {
    return "com.example.game" + std::to_string(day % kPackages);
}

double processSeconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void configureDevice() {
    device::StandInDevice& device = device::StandInDevice::instance();
    device.setEventSink([](const device::Event&) {});
    std::vector<std::string> packages;
    for (int i = 0; i < kPackages; ++i) packages.push_back(package(i));
    device.reset({{"vendor.perf.pfar2.enable", "1"},
                  {"vendor.perf.phr.enable", "1"},
                  {"vendor.perf.pfar2.hgpe.enable", "1"}},
                 packages);
}

// Buffers wait in the queue at first, which switches the headroom regulator on, and every hundredth
// frame comes late.
void playFrame(device::CindralLibrary& library, const std::string& layer, int frame) {
    const int64_t begin = sim::now();
    library.trackVsyncSignal();
    library.trackBufferIncrement(layer.c_str());
    library.trackBufferDecrement(layer.c_str(), frame < 200 ? 1 : 0);
    if (frame % 60 == 0) library.trackBufferIncrement(("Toast#" + std::to_string(frame)).c_str());
    const int64_t late = frame % 100 == 99 ? 20 * kMs : 0;
    sim::sleepUntil(begin + kPeriodNs + late);
}

void playDay(device::CindralLibrary& library, int day) {
    const int64_t midnight = sim::now();
    const std::string layer = "SurfaceView[" + package(day) + "/" + package(day) +
                              ".MainActivity](BLAST)#" + std::to_string(day);
    const double before = processSeconds();
    for (int frame = 0; frame < kFramesPerDay; ++frame) playFrame(library, layer, frame);
    const double perFrame = (processSeconds() - before) / kFramesPerDay;
    printf("{\"day\": %d, \"us_per_frame\": %.3f, \"blocks\": %lld}\n", day + 1, perFrame * 1e6,
           static_cast<long long>(reliability::librarysLiveBlocks()));
    fflush(stdout);
    sim::sleepUntil(midnight + kDayNs);
}

}  // namespace

int main(int argc, char** argv) {
    const int days = argc > 1 ? atoi(argv[1]) : kDays;
    if (argc > 2 || days < 1) {
        fprintf(stderr, "usage: month_of_play [DAYS]\n");
        return 2;
    }
    configureDevice();
    sim::Options options;
    options.stepBudget = UINT64_MAX;
    sim::run(options, [&] {
        const device::ServiceLibraries services;
        device::CindralLibrary library;
        reliability::Shortage memory = reliability::countedMemory();  // for counting, not failing
        memory.library = reliability::codeAround(reinterpret_cast<const void*>(library.init));
        reliability::setShortage(memory);
        library.init();
        library.setVsyncPeriod(kPeriodNs);
        for (int day = 0; day < days; ++day) playDay(library, day);
    });
    return 0;
}
