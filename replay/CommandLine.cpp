#include "replay/CommandLine.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <vector>

#include "replay/Error.h"

namespace replay {

namespace {

constexpr int64_t kMaxCpuCostNs = 1'000'000;

constexpr char kPurpose[] =
        "Plays a capture of a game to the real libcindral.so in virtual time, on a stand-in "
        "device, and shows "
        "what the library did.";

constexpr char kExamples[] = R"(Examples:
  cindral-replay                            the modelled session, half a minute of a 60 Hz game
  cindral-replay game.ftrace                a capture as atrace or trace_pipe prints it
  cindral-replay game.ftrace --timeline     every call, log line and marker on one time axis
  cindral-replay game.ftrace --set vendor.perf.phr.enable=0
                                            without the headroom regulator
  cindral-replay game.ftrace --closed-loop  the game takes its render time again after being held
  cindral-replay game.ftrace --list-layers  what there is to replay
  cindral-replay --write-capture model.ftrace
                                            the modelled session as ftrace text

Unless set otherwise the frame regulator, the headroom regulator, the power optimisation and the debug
output are on. A capture needs the counters of the compositor: atrace categories gfx and view.
Exit status: 0 done, 1 output not written, 2 bad input, 3 the replay failed, for instance in a deadlock.)";

}  // namespace

std::optional<CommandLine> parseCommandLine(int argc, char** argv) {
    CommandLine line;
    std::vector<std::string> assignments;
    CLI::App app(kPurpose, "cindral-replay");
    app.footer(kExamples);
    app.set_version_flag("--version", std::string("cindral-replay ") + CINDRAL_VERSION);
    app.add_option("CAPTURE", line.capture,
                   "ftrace text; - is standard input; without it: the modelled session");
    app.add_flag("--list-layers", line.listLayers, "List the layers of the capture and stop");
    app.add_option("--layer", line.layerPattern,
                   "Replay the layer whose name matches; it is an error if several do or none does")
            ->type_name("REGEX");
    app.add_option("--set", assignments, "Set a property of the device; may be repeated")
            ->type_name("PROPERTY=VALUE")
            ->take_all()
            ->expected(1)
            ->allow_extra_args(false);
    app.add_option("--refresh", line.refreshHz, "The display's rate, if the capture does not tell")
            ->type_name("HZ");
    app.add_flag("--timeline", line.timeline, "Show every event after the summary");
    app.add_flag("--closed-loop", line.closedLoop,
                 "Let a held game need its render time again, and let the compositor take only "
                 "buffers that "
                 "are there; otherwise everything happens as captured");
    app.add_option("--write-capture", line.writeCapture,
                   "Write the modelled session as ftrace text and stop")
            ->type_name("FILE");
    app.add_option("--cpu-cost", line.cpuCostNs, "Virtual time that each blocking call takes")
            ->type_name("NS")
            ->check(CLI::Range(int64_t{0}, kMaxCpuCostNs));
    app.add_option("--library", line.library, "The library to test")->type_name("PATH");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& request) {
        app.exit(request, std::cout, std::cerr);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw InputError(std::string(error.what()) + "; see --help");
    }
    for (const std::string& assignment : assignments) line.settings.set(assignment);
    if (!line.writeCapture.empty() && !line.capture.empty()) {
        throw InputError("--write-capture writes the modelled session; leave " +
                         inQuotes(line.capture) + " out");
    }
    return line;
}

}  // namespace replay
