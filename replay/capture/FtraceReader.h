#pragma once

// Reads ftrace text: what atrace prints, trace_pipe delivers and a systrace page carries.

#include <cstdint>
#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace replay {

// One event line. The views point into the line that was parsed.
struct FtraceLine {
    std::string_view task;
    int pid = 0;
    int64_t timeNs = 0;  // the capture's own clock
    std::string_view function;
    std::string_view payload;
};

// Nothing if the line is not of the form TASK-PID [(TGID)] [CPU] FLAGS TIME: FUNCTION: PAYLOAD.
std::optional<FtraceLine> parseFtraceLine(std::string_view line);

// What userspace wrote into the trace, such as "C|123|VSYNC-sf|1". Valid only during the call.
struct Marker {
    int64_t timeNs = 0;
    std::string_view payload;
};
using MarkerSink = std::function<void(const Marker&)>;

// What is missing from the text although it could be read.
struct FtraceLosses {
    uint64_t lostEvents = 0;      // what the kernel says it dropped
    bool lastLineCutOff = false;  // the text ends within a line
};

// Hands every userspace marker to `sink` in the order of the text. Memory use does not depend on
// the length of the text. Throws InputError, "fileName:line: ...", for a line that is no ftrace and
// for whatever InputError the sink throws.
FtraceLosses readFtrace(std::istream& in, const std::string& fileName, const MarkerSink& sink);

}  // namespace replay
