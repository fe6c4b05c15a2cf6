#pragma once

// Counters as the tracing of a device would show them, and as ftrace text.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace replay {

struct CounterSample {
    int64_t timeNs = 0;  // whole microseconds, as ftrace text has no more
    enum class Origin { kProducer, kCompositor, kVsync } origin = Origin::kProducer;
    std::string name;
    int64_t value = 0;
};

// Text that reads back as the same counters.
void writeFtrace(std::ostream& out, const std::vector<CounterSample>& samples);

// Whether a file that begins so was written by it.
bool isWrittenFtrace(std::string_view firstBytes);

}  // namespace replay
