#include "replay/plan/Input.h"

#include <unistd.h>

#include <regex>
#include <tuple>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/capture/Progress.h"
#include "replay/capture/ReadCapture.h"
#include "replay/play/Workloads.h"

namespace replay {

namespace {

constexpr char kWorkloadPackage[] = "com.example.game";

std::regex compile(const std::string& pattern) {
    try {
        return std::regex(pattern);
    } catch (const std::regex_error& error) {
        throw InputError("--layer " + inQuotes(pattern) + ": not a regular expression: " +
                         error.what() + "; write \\[ for a bracket");
    }
}

std::string layerNames(const Capture& capture, const std::vector<size_t>& indexes) {
    std::string text;
    for (const size_t index : indexes) {
        text += (text.empty() ? "" : ", ") + capture.layers[index].name.layer;
    }
    return text;
}

size_t matchingLayer(const Capture& capture, const std::string& pattern) {
    std::vector<size_t> all;
    std::vector<size_t> matching;
    const std::regex regex = compile(pattern);
    for (size_t i = 0; i < capture.layers.size(); ++i) {
        all.push_back(i);
        if (std::regex_search(capture.layers[i].name.layer, regex)) matching.push_back(i);
    }
    if (matching.size() == 1) return matching.front();
    if (matching.empty()) {
        throw InputError("--layer " + inQuotes(pattern) +
                         " matches none of: " + layerNames(capture, all));
    }
    throw InputError(capture.source +
                     ": choose one layer with --layer REGEX: " + layerNames(capture, matching));
}

size_t layerNamed(const Capture& capture, const std::string& name) {
    for (size_t i = 0; i < capture.layers.size(); ++i) {
        if (capture.layers[i].name.layer == name) return i;
    }
    throw InputError(capture.source + ": has no layer " + inQuotes(name) +
                     ", which the expectation is about");
}

Capture workloadCapture(const InputChoice& choice) {
    workloadNs(choice.workload, 1, 0);  // does it exist?
    Capture capture;
    capture.source = choice.name();
    LayerEvents layer;
    layer.name.package = kWorkloadPackage;
    layer.name.layer = std::string("SurfaceView[") + kWorkloadPackage + "/.Workload](BLAST)#1";
    layer.counter = "BufferTX - " + layer.name.layer;
    capture.layers.push_back(layer);
    return capture;
}

Capture open(const InputChoice& choice, const ReadOptions& options) {
    return choice.capture.empty() ? workloadCapture(choice) : readCapture(choice.capture, options);
}

Input withLayer(Capture capture, const InputChoice& choice) {
    Input input;
    input.workload = choice.workload;
    input.frames = choice.frames;
    input.capture = std::move(capture);
    input.layerIndex = choice.layer.empty() ? matchingLayer(input.capture, choice.layerPattern)
                                            : layerNamed(input.capture, choice.layer);
    return input;
}

}  // namespace

std::string InputChoice::name() const {
    return capture.empty() ? "workload " + workload : capture;
}

bool InputChoice::operator==(const InputChoice& other) const {
    const auto all = [](const InputChoice& choice) {
        return std::tie(choice.capture, choice.layerPattern, choice.layer, choice.workload,
                        choice.frames);
    };
    return all(*this) == all(other);
}

Capture openCapture(const InputChoice& choice) {
    return open(choice, {});
}

Input openInput(const InputChoice& choice) {
    return withLayer(openCapture(choice), choice);
}

Input openInputVisibly(const InputChoice& choice) {
    Progress progress(STDERR_FILENO, choice.name());
    ReadOptions options;
    options.onProgress = [&](uint64_t done, uint64_t total) { progress.show(done, total); };
    return withLayer(open(choice, options), choice);
}

}  // namespace replay
