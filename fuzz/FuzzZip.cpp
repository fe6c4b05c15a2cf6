#include "fuzz/Fuzz.h"
#include "replay/capture/FtraceReader.h"
#include "replay/capture/ZipReader.h"

namespace {

void read(replay::ByteSource& bytes, replay::ReadContext& context, const replay::MarkerSink& sink) {
    replay::PeekedSource zip(bytes);
    replay::readFtrace(*replay::openZip(zip, context), context, sink);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::fuzzReader(read, data, size);
    return 0;
}
