// Everything as a user meets it: the format is told from the bytes.

#include "fuzz/Fuzz.h"
#include "replay/capture/ReadCapture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::expectCaptureOrOneLine([&] {
        replay::MemorySource source({reinterpret_cast<const char*>(data), size});
        return replay::readCapture(source, "file");
    });
    return 0;
}
