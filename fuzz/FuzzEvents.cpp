// Sequences of entry-point calls on the simulated device: the bytes decide the program and the
// schedule, and the invariants of tests/reliability hold throughout. What counts as new is a pair of
// things seen one after the other, as the library itself is loaded anew for each input.

#include <cstdint>
#include <functional>

#include "tests/reliability/Player.h"

using namespace reliability;

namespace {

constexpr size_t kCounters = 1 << 14;
__attribute__((section("__libfuzzer_extra_counters"), used)) uint8_t gSeen[kCounters];

size_t kindOf(const device::Event& event) {
    size_t kind = static_cast<size_t>(event.kind) * 31 + static_cast<size_t>(event.entryPoint);
    if (event.kind != device::EventKind::kServiceCall)
        return kind * 31 + std::hash<std::string>()(event.text.substr(0, 12));
    for (const int argument : event.arguments) kind = kind * 31 + static_cast<size_t>(argument);
    return kind;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const uint64_t schedule = data[0] * 256U + data[1];
    size_t previous = 0;
    Trouble watched;
    watched.sound = true;
    watched.observer = [&](const device::Event& event) {
        const size_t kind = kindOf(event);
        uint8_t& counter = gSeen[(previous * 131 + kind) % kCounters];
        if (counter < UINT8_MAX) ++counter;
        previous = kind;
    };
    play(generate(choicesFrom(data + 2, size - 2)), schedule, "libcindral.so", &watched);
    return 0;
}
