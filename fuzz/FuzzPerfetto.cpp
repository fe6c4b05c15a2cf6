#include "fuzz/Fuzz.h"
#include "replay/capture/PerfettoReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::fuzzReader(replay::readPerfetto, data, size);
    return 0;
}
