#pragma once

// The one way from a file to a Capture, whatever the file is: ftrace text, a systrace page, a
// Perfetto trace, or any of them packed with gzip, zstd or zip. What it is shows in its first
// bytes; names and endings of files do not matter.

#include <cstdint>
#include <functional>
#include <string>

#include "replay/capture/ByteSource.h"
#include "replay/capture/Capture.h"

namespace replay {

struct ReadOptions {
    // Called while reading with the bytes of the file that are done, and how many there are in all
    // (0: not known). May be empty. See Progress.h for a bar on a terminal.
    std::function<void(uint64_t doneBytes, uint64_t totalBytes)> onProgress;
};

// Reads `path`; "-" is standard input. What a broken or cut-off capture lacks is said in
// Capture::lost. Memory use depends on the counters that matter, not on the size of the file.
// Several threads may read different files at once. Throws InputError, one line.
Capture readCapture(const std::string& path, const ReadOptions& options = {});

// The same from any bytes; `name` is what messages call them.
Capture readCapture(ByteSource& bytes, const std::string& name);

}  // namespace replay
