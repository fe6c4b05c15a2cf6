// What the library keeps in memory, and how many threads, in each of its states, as JSON: all of the
// process, so that the differences between the states are what counts.

#include <malloc.h>

#include <cstdio>
#include <exception>

#include "bench/Scene.h"
#include "device/Process.h"

namespace {

void print(const char* state, const bench::SceneOptions& options, const char* end) {
    const bench::Scene scene(options);
    printf("  \"%s\": {\"heap_bytes\": %zu, \"threads\": %d}%s\n", state, mallinfo2().uordblks,
           device::countThreads(), end);
}

void printStates() {
    bench::SceneOptions options;
    options.floorThread = false;
    printf("{\n");
    print("warm_up", options, ",");  // the C library's and the device's own
    print("initialised", options, ",");
    options.trackers = 1;
    print("one_measuring", options, ",");
    options.trackers = 2;
    print("two_measuring", options, ",");
    options.threads = bench::LibraryThreads::kAll;
    options.headroom = options.power = options.environment = true;
    options.trackers = 1;
    print("one_with_environment", options, ",");
    options.trackers = 2;
    print("two_with_environment", options, "");
    printf("}\n");
}

}  // namespace

int main() {
    try {
        printStates();
    } catch (const std::exception& error) {
        fprintf(stderr, "footprint: %s\n", error.what());
        return 1;
    }
    return 0;
}
