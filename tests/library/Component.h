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
using device::EntryPoint;
using device::StandInDevice;

inline constexpr int64_t kMs = 1'000'000;

// Runs `body` with a new client of a fresh device that lacks what `without` names.
template <typename Body>
void withClient(const std::vector<std::string>& without, Body body) {
    StandInDevice::instance().reset();
    StandInDevice::instance().setTraceTags(2);
    const sim::Outcome outcome = sim::run({}, [&] {
        const device::ServiceLibraries services(without);
        const sp<PerfProxy> client = new PerfProxy();
        StandInDevice::instance().clearEvents();
        body(*client);
    });
    ASSERT_TRUE(outcome.ok());
}

// Everything seen from outside, in order.
inline std::vector<std::string> seen() {
    std::vector<std::string> lines;
    for (const device::Event& event : StandInDevice::instance().events()) {
        lines.push_back(device::describe(event));
    }
    return lines;
}
