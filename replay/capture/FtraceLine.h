#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace replay {

// One event line of ftrace text. The views point into the line that was parsed.
struct FtraceLine {
    std::string_view task;
    int pid = 0;
    bool interrupt = false;  // happened in one that came over the task
    int64_t timeNs = 0;      // the capture's own clock
    std::string_view function;
    std::string_view payload;
};

// Nothing if the line is not of the form TASK-PID [(TGID)] [CPU] FLAGS TIME: FUNCTION: PAYLOAD.
std::optional<FtraceLine> parseFtraceLine(std::string_view line);

}  // namespace replay
