#pragma once

// The side of the StandInDevice that the library under test reaches, through the service libraries and the
// platform sinks.
//
// Any thread. A service call is recorded when it comes in and then blocks for the delay of its
// entry point, with no lock held. Every pointer may be null.

#include <cstddef>
#include <cstdint>
#include <string>

#include "device/StandInDevice.h"

namespace device {

class Backend {
  public:
    static int isFeatureEnabled(int id);
    // Writes at most `size` characters, the terminating null included.
    static void getProp(const char* property, const char* defaultValue, char* value, size_t size);
    static int getFeedback(int request, const char* package);
    static int getFeedbackExtn(int request, const char* package, int count, const int* values);
    static int hint(int hintId, const char* package, int duration, int type);
    static int lockAcquire(int handle, int duration, const int* list, int count);
    static int lockRelease(int handle);
    static double halVersion();

    static void log(int priority, const char* tag, std::string text);
    static void traceBegin(const char* name);
    static void traceEnd();
    static uint64_t traceTags();

  private:
    static StandInDevice::State& state();
    static void record(Event&& event);
    template <typename Answer>
    static auto serve(Event event, Answer answer);
    static int weightOf(const StandInDevice::State& state, const std::string& package);
    static int newHandle(StandInDevice::State& state);
};

}  // namespace device
