#include "replay/fleet/Sweep.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <sstream>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/capture/Progress.h"
#include "replay/plan/Jobs.h"
#include "replay/plan/PlayInput.h"

namespace replay {

namespace {

constexpr size_t kMaxReasonChars = 2000;

// Faults of the code that is run; the same again next time. All other signals come from outside.
bool isOwnFault(int signal) {
    return signal == SIGSEGV || signal == SIGABRT || signal == SIGBUS || signal == SIGFPE ||
           signal == SIGILL || signal == SIGTRAP;
}

// The same on every machine, wherever its captures are.
std::string reasonOf(const std::string& error, const FleetCapture& capture) {
    const std::string prefix = capture.path + ":";
    const std::string reason = error.substr(startsWith(error, prefix) ? prefix.size() : 0);
    return reason.substr(reason.find_first_not_of(' '), kMaxReasonChars);
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// Makes the row in a process of its own, or the reason why it cannot be made.
std::string play(Row row, const RowFolder& folder, const Input& input, const Setup& setup) {
    const Job job = [&]() -> std::string {
        row.take(playInput(input, setup).findings);
        folder.put(row);
        return "";
    };
    const JobResult result = runJobs(std::vector<Job>{job}, 1).front();
    if (result.outputFailed) throw OutputError(result.error);
    if (result.signal != 0 && !isOwnFault(result.signal)) throw ReplayError(result.error);
    return result.error;
}

// What a worker does with one capture. Returns what Tally takes.
std::string sweepCapture(const Sweep& sweep, const RowFolder& folder, const FleetCapture& capture) {
    const std::string hash = capture.hash.empty() ? hashOfFile(capture.path) : capture.hash;
    folder.put(CaptureRecord{hash, capture.name, capture.columns});
    InputChoice choice = sweep.input;
    choice.capture = capture.path;
    SweepResult result;
    std::optional<Input> input;
    std::string unreadable;
    for (const Setup& setup : sweep.setups) {
        Row row = rowFor(sweep, hash, setup);
        if (folder.find(row)) {
            ++result.present;
            continue;
        }
        try {
            if (!input && unreadable.empty()) input = openInput(choice);
        } catch (const InputError& error) {
            unreadable = error.what();
        }
        const std::string failure = input ? play(row, folder, *input, setup) : unreadable;
        if (!failure.empty()) {
            row.failure = reasonOf(failure, capture);
            folder.put(row);
            ++result.failed;
        }
        ++result.made;
    }
    return format("%zu %zu %zu %s", result.made, result.failed, result.present, hash.c_str());
}

// Adds what a worker said of its capture.
void take(const JobResult& job, FleetCapture& capture, SweepResult& result, Bar& bar) {
    SweepResult one;
    std::istringstream(job.output) >> one.made >> one.failed >> one.present >> capture.hash;
    result.made += one.made;
    result.failed += one.failed;
    result.present += one.present;
    if (job.error.empty() || job.outputFailed) return;
    ++result.lost;
    bar.clear();
    complain(capture.name + ": left out: " + reasonOf(job.error, capture));
}

}  // namespace

Row rowFor(const Sweep& sweep, const std::string& capture, const Setup& setup) {
    Row row;
    row.capture = capture;
    row.setting = setup.label;
    std::vector<std::string> options = setup.toOptions();
    if (!sweep.input.join && !sweep.input.layerPattern.empty()) {
        options.insert(options.end(), {"--layer", sweep.input.layerPattern});
    }
    for (const std::string& option : sweep.input.toOptions()) options.push_back(option);
    row.options = joined(options);
    row.library = sweep.library;
    return row;
}

SweepResult makeRows(Sweep& sweep) {
    const RowFolder folder(sweep.folder);
    const size_t all = sweep.captures.size();
    SweepResult result;
    std::string outputError;  // a full disk is one trouble, however many captures it meets
    Bar bar(STDERR_FILENO);
    size_t begun = 0;
    size_t done = 0;
    const auto next = [&]() -> Job {
        if (begun == all || !outputError.empty()) return {};
        return [&, capture = begun++] {
            return sweepCapture(sweep, folder, sweep.captures[capture]);
        };
    };
    const auto ended = [&](size_t capture, const JobResult& job) {
        if (job.outputFailed) outputError = job.error;
        take(job, sweep.captures[capture], result, bar);
        ++done;
        bar.show(done, all,
                 format("%s: %zu of %zu captures left, %zu runs failed", sweep.title.c_str(),
                        all - done, all, result.failed));
    };
    runJobs(next, ended, sweep.jobs);
    if (!outputError.empty()) throw OutputError(outputError);
    return result;
}

std::string buildOf(const std::string& library) {
    // Not in this process, which shall not run the library's code.
    const Job job = [&]() -> std::string {
        void* const handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
        const link_map* map = nullptr;
        if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
            throw InputError(std::string("cannot open the library: ") + dlerror());
        }
        return hashOfFile(map->l_name);
    };
    const JobResult result = runJobs(std::vector<Job>{job}, 1).front();
    if (!result.error.empty()) throw InputError(result.error);
    return result.output;
}

}  // namespace replay
