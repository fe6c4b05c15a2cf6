#include "fuzz/Fuzz.h"
#include "replay/capture/HtmlReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::fuzzReader(replay::readPage, data, size);
    return 0;
}
