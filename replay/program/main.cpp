#include <malloc.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/program/CommandLine.h"
#include "replay/program/Tasks.h"

namespace {

using namespace replay;

// What one step gives back the next one takes. Through the kernel each page would be cleared anew,
// which costs more than what is written to it.
void keepMemory() {
    constexpr int kMost = 32 << 20;
    mallopt(M_MMAP_THRESHOLD, kMost);
    mallopt(M_TRIM_THRESHOLD, 8 * kMost);
}

int run(const std::vector<std::string>& arguments) {
    const std::optional<CommandLine> line = parseCommandLine(arguments);
    if (line) return execute(*line);
    finishOutput(std::cout, "standard output");
    return kDone;
}

}  // namespace

int main(int argc, char** argv) {
    // Who reads only the beginning wants to hear nothing of the rest.
    std::signal(SIGPIPE, SIG_DFL);
    keepMemory();
    try {
        return run({argv + 1, argv + argc});
    } catch (const InputError& error) {
        complain(onOneLine(error.what()));
        return kBadInput;
    } catch (const OutputError& error) {
        complain(onOneLine(error.what()));
        return kOutputFailed;
    } catch (const ReplayError& error) {
        // Threads of the failed run are parked inside the library: no clean-up may touch it any
        // more.
        complain(error.what());
        _exit(kReplayFailed);
    } catch (const std::exception& error) {
        complain(error.what());
        return kReplayFailed;
    }
}
