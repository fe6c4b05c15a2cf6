#include "replay/plan/Input.h"

#include <unistd.h>

#include <cmath>
#include <regex>
#include <tuple>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/capture/Part.h"
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

size_t matchingLayer(Input& input, const InputChoice& choice) {
    const Capture& capture = input.capture;
    const std::string& pattern = choice.layerPattern;
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
    if (choice.join) {
        input.notes.emplace_back("layers joined", layerNames(capture, matching));
        return joinLayers(input.capture, matching);
    }
    throw InputError(capture.source +
                     ": choose one layer with --layer REGEX, or add --join for one "
                     "that was made anew: " +
                     layerNames(capture, matching));
}

size_t layerNamed(const Capture& capture, const std::string& name) {
    for (size_t i = 0; i < capture.layers.size(); ++i) {
        if (capture.layers[i].name.layer == name) return i;
    }
    throw InputError(capture.source + ": has no layer " + inQuotes(name) +
                     ", which the expectation is about");
}

// "2.5" or "2.5s" are seconds since the first event, "300f" is a frame of the layer.
int64_t momentOf(const char* option, const std::string& text, const Input& input) {
    const auto refuse = [&](const std::string& why) {
        throw InputError(std::string(option) + " " + inQuotes(text) + ": " + why);
    };
    const bool isFrame = !text.empty() && text.back() == 'f';
    const bool hasUnit = isFrame || (!text.empty() && text.back() == 's');
    double number = 0;
    const bool isNumber = toNumber(std::string_view(text).substr(0, text.size() - hasUnit), number);
    if (!isNumber || !(number >= 0)) refuse("give seconds as in 2.5, or a frame as in 300f");
    const double endSeconds = toSeconds(input.capture.durationNs);
    if (!isFrame && number > endSeconds) refuse(format("the capture ends at %.3f s", endSeconds));
    if (!isFrame) return std::llround(number * 1e9);
    const std::vector<int64_t>& frames = input.layer().queueTimesNs;
    if (number >= static_cast<double>(frames.size())) {
        refuse(format("the layer has %zu frames, numbered from 0", frames.size()));
    }
    return frames[static_cast<size_t>(number)];
}

void takePart(Input& input, const InputChoice& choice) {
    if (choice.from.empty() && choice.to.empty()) return;
    const int64_t from = choice.from.empty() ? 0 : momentOf("--from", choice.from, input);
    const int64_t to =
            choice.to.empty() ? input.capture.durationNs : momentOf("--to", choice.to, input);
    if (from >= to) throw InputError("--from must come before --to");
    cutCapture(input.capture, from, to);
    input.notes.emplace_back(
            "part", format("from %.6f s to %.6f s of the capture", toSeconds(from), toSeconds(to)));
    if (input.layer().queueTimesNs.empty()) {
        throw InputError(input.capture.source +
                         ": the layer queues no buffer between --from and --to");
    }
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
    const bool isNamed = !choice.layer.empty() && !choice.join;
    input.layerIndex =
            isNamed ? layerNamed(input.capture, choice.layer) : matchingLayer(input, choice);
    takePart(input, choice);
    if (!input.layer().standIn.empty()) {
        input.notes.emplace_back("queue", input.layer().standIn);
    }
    return input;
}

}  // namespace

std::string InputChoice::name() const {
    return capture.empty() ? "workload " + workload : capture;
}

bool InputChoice::operator==(const InputChoice& other) const {
    const auto all = [](const InputChoice& choice) {
        return std::tie(choice.capture, choice.layerPattern, choice.layer, choice.workload,
                        choice.frames, choice.join, choice.from, choice.to);
    };
    return all(*this) == all(other);
}

std::vector<std::string> InputChoice::toOptions() const {
    std::vector<std::string> options;
    if (join) options.insert(options.end(), {"--layer", layerPattern, "--join"});
    if (!from.empty()) options.insert(options.end(), {"--from", from});
    if (!to.empty()) options.insert(options.end(), {"--to", to});
    return options;
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
