#include "fuzz/Fuzz.h"
#include "replay/capture/FtraceReader.h"
#include "replay/capture/HtmlReader.h"

namespace {

void read(replay::ByteSource& bytes, replay::ReadContext& context, const replay::MarkerSink& sink) {
    replay::readFtrace(*replay::openPage(bytes, context), context, sink);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    replay::fuzzReader(read, data, size);
    return 0;
}
