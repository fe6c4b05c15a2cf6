#include "fuzz/Fuzz.h"
#include "replay/capture/FtraceReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::fuzzReader(replay::readFtrace, data, size);
    return 0;
}
