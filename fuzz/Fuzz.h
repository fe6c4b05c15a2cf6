#pragma once

// What all fuzz targets have in common: whatever the bytes are, reading them ends in a capture or
// in an InputError of one line. Anything else stops the fuzzer with the input that did it.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>

#include "replay/base/Error.h"
#include "replay/capture/Capture.h"
#include "replay/capture/Losses.h"
#include "replay/capture/Marker.h"

namespace replay {

[[noreturn]] inline void failFuzzing(const char* what, const std::string& text) {
    std::fprintf(stderr, "%s: %s\n", what, text.c_str());
    std::abort();
}

inline void expectOneLine(const std::string& text) {
    if (text.find('\n') != std::string::npos) failFuzzing("more than one line", text);
}

// What a replay does with a capture before it plays it.
inline void useCapture(const Capture& capture) {
    expectOneLine(capture.lost);
    const VsyncTrack track = vsyncTrack(capture, std::nullopt);
    if (track.periodNs <= 0) failFuzzing("no period", std::to_string(track.periodNs));
    for (size_t i = 1; i < track.timesNs.size(); ++i) {
        if (track.timesNs[i] < track.timesNs[i - 1])
            failFuzzing("vsyncs out of order", track.source);
    }
}

inline void expectCaptureOrOneLine(const std::function<Capture()>& read) {
    try {
        useCapture(read());
    } catch (const InputError& error) {
        if (std::string_view(error.what()).empty()) failFuzzing("no explanation", "");
        expectOneLine(error.what());
    }
}

using Reader = void (*)(ByteSource&, ReadContext&, const MarkerSink&);

// A reader by itself, without the choice between them, so that no input is spent on that.
inline void fuzzReader(Reader reader, const uint8_t* data, size_t size) {
    expectCaptureOrOneLine([&] {
        MemorySource source({reinterpret_cast<const char*>(data), size});
        ReadContext context("file");
        CaptureBuilder builder;
        reader(source, context, [&](const Marker& marker) { builder.addMarker(marker); });
        Capture capture = builder.build("file");
        capture.lost = context.losses.describe();
        capture.scheduling = context.scheduling.build(capture.originNs);
        return capture;
    });
}

}  // namespace replay
