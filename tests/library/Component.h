#pragma once

// A service client by itself, on the stand-in device and in virtual time.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "device/StandInDevice.h"
#include "perf/PerfProxy.h"
#include "sim/Simulation.h"

using android::PerfProxy;
using android::sp;
using standin::Device;
using standin::EntryPoint;

inline constexpr int64_t kMs = 1'000'000;

// Runs `body` with a new client of a fresh device that lacks what `without` names.
template <typename Body>
void withClient(const std::vector<std::string>& without, Body body) {
    Device::instance().reset();
    Device::instance().setTraceTags(2);
    const sim::Outcome outcome = sim::run({}, [&] {
        const standin::ServiceLibraries services(without);
        const sp<PerfProxy> client = new PerfProxy();
        Device::instance().clearEvents();
        body(*client);
    });
    ASSERT_TRUE(outcome.ok());
}

// Everything seen from outside, in order.
inline std::vector<std::string> seen() {
    std::vector<std::string> lines;
    for (const standin::Event& event : Device::instance().events()) {
        lines.push_back(standin::describe(event));
    }
    return lines;
}
