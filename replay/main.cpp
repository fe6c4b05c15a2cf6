#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <regex>

#include "replay/CommandLine.h"
#include "replay/Error.h"
#include "replay/capture/Capture.h"
#include "replay/capture/FtraceReader.h"
#include "replay/capture/ModelledSession.h"
#include "replay/findings/Summary.h"
#include "replay/findings/Timeline.h"
#include "replay/player/Player.h"

namespace {

using namespace replay;

enum ExitStatus { kDone = 0, kOutputFailed = 1, kBadInput = 2, kReplayFailed = 3 };

class OutputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A full disk or a reader that went away shows only now, if nobody asked before.
void finish(std::ostream& out, const std::string& name) {
    out.flush();
    if (!out)
        throw OutputError(name + ": could not be written; is the disk full or the reader gone?");
}

Capture readCapture(std::istream& in, const std::string& name) {
    CaptureBuilder builder;
    const FtraceLosses losses = readFtrace(in, name, [&](const Marker& marker) {
        builder.addMarker(marker.timeNs, marker.payload);
    });
    Capture capture = builder.build(name);
    capture.lostEvents = losses.lostEvents;
    capture.lastLineCutOff = losses.lastLineCutOff;
    return capture;
}

Capture loadCapture(const std::string& path) {
    if (path.empty()) return modelledCapture();
    if (path == "-") return readCapture(std::cin, "standard input");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw InputError(path + ": cannot be opened: " + std::strerror(errno));
    return readCapture(file, path);
}

void writeModelledCapture(const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) throw OutputError(path + ": cannot be created: " + std::strerror(errno));
    writeFtrace(file, modelledSession());
    finish(file, path);
}

void listLayers(std::ostream& out, const Capture& capture) {
    for (const LayerEvents& layer : capture.layers) {
        const double seconds = static_cast<double>(capture.durationNs) / 1e9;
        const double rate =
                seconds > 0 ? static_cast<double>(layer.queueTimesNs.size()) / seconds : 0;
        char figures[96];
        std::snprintf(figures, sizeof(figures), "%6zu queued %6zu consumed %7.2f/s  ",
                      layer.queueTimesNs.size(), layer.consumes.size(), rate);
        out << figures << layer.name.layer << '\n';
    }
}

std::string layerNames(const std::vector<const LayerEvents*>& layers) {
    std::string text;
    for (const LayerEvents* layer : layers) text += (text.empty() ? "" : ", ") + layer->name.layer;
    return text;
}

std::regex compile(const std::string& pattern) {
    try {
        return std::regex(pattern);
    } catch (const std::regex_error& error) {
        throw InputError("--layer " + inQuotes(pattern) + ": not a regular expression: " +
                         error.what() + "; write \\[ for a bracket");
    }
}

const LayerEvents& chooseLayer(const Capture& capture, const std::string& pattern) {
    std::vector<const LayerEvents*> all;
    std::vector<const LayerEvents*> matching;
    const std::regex regex = compile(pattern);
    for (const LayerEvents& layer : capture.layers) {
        all.push_back(&layer);
        if (std::regex_search(layer.name.layer, regex)) matching.push_back(&layer);
    }
    if (matching.size() == 1) return *matching.front();
    if (matching.empty()) {
        throw InputError("--layer " + inQuotes(pattern) + " matches none of: " + layerNames(all));
    }
    throw InputError(capture.source +
                     ": choose one layer with --layer REGEX: " + layerNames(matching));
}

void replayCapture(const CommandLine& line, const Capture& capture) {
    const LayerEvents& layer = chooseLayer(capture, line.layerPattern);
    const VsyncTrack vsyncs = vsyncTrack(capture, line.refreshHz);
    PlayOptions options;
    options.library = line.library;
    options.closedLoop = line.closedLoop;
    options.cpuCostPerCallNs = line.cpuCostNs;
    const Run run = play(layer, vsyncs, line.settings, options);
    writeSummary(std::cout, summarize(capture, layer, vsyncs, run));
    if (line.timeline) {
        std::cout << "\nTimeline\n";
        writeTimeline(std::cout, run);
    }
}

void execute(int argc, char** argv) {
    const std::optional<CommandLine> line = parseCommandLine(argc, argv);
    if (line && !line->writeCapture.empty()) return writeModelledCapture(line->writeCapture);
    if (line) {
        const Capture capture = loadCapture(line->capture);
        if (line->listLayers) {
            listLayers(std::cout, capture);
        } else {
            replayCapture(*line, capture);
        }
    }
    finish(std::cout, "standard output");
}

int complain(std::string text, ExitStatus status) {
    // Scripts read one line; names that the user gave may hold anything.
    if (status != kReplayFailed) std::replace(text.begin(), text.end(), '\n', ' ');
    std::fprintf(stderr, "cindral-replay: %s\n", text.c_str());
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    // A reader that goes away is reported like any other failed write.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        execute(argc, argv);
        return kDone;
    } catch (const InputError& error) {
        return complain(error.what(), kBadInput);
    } catch (const OutputError& error) {
        return complain(error.what(), kOutputFailed);
    } catch (const ReplayError& error) {
        // Threads of the failed run are parked inside the library: no clean-up may touch it any
        // more.
        complain(error.what(), kReplayFailed);
        _exit(kReplayFailed);
    } catch (const std::exception& error) {
        return complain(error.what(), kReplayFailed);
    }
}
