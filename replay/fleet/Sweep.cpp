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

Row played(Row row, const FleetCapture& capture, const Input& input, const Setup& setup) {
    const Job job = [&] {
        row.take(playInput(input, setup).findings);
        return toText(row);
    };
    const JobResult result = runJobs(std::vector<Job>{job}, 1).front();
    if (result.error.empty()) return parseRecord<Row>(result.output, capture.path);
    if (result.signal != 0 && !isOwnFault(result.signal)) throw ReplayError(result.error);
    row.failure = reasonOf(result.error, capture);
    return row;
}

// What a worker does with one capture.
SweepResult sweepCapture(const Sweep& sweep, const RowFolder& folder, const FleetCapture& capture) {
    const std::string hash = capture.hash.empty() ? hashOfFile(capture.path) : capture.hash;
    folder.put(CaptureRecord{hash, capture.name, capture.columns});
    InputChoice choice = sweep.input;
    choice.capture = capture.path;
    SweepResult result;
    std::optional<Input> input;
    std::string failure;
    for (const Setup& setup : sweep.setups) {
        Row row = rowFor(sweep, hash, setup);
        if (folder.find(row)) {
            ++result.present;
            continue;
        }
        try {
            if (!input && failure.empty()) input = openInput(choice);
        } catch (const InputError& error) {
            failure = reasonOf(error.what(), capture);
        }
        row.failure = failure;
        if (input) row = played(row, capture, *input, setup);
        folder.put(row);
        ++result.made;
        if (!row.failure.empty()) ++result.failed;
    }
    return result;
}

constexpr char kOutputFailed[] = "output ";

// A full disk is one trouble, however many captures it meets.
std::string sweepOne(const Sweep& sweep, const RowFolder& folder, const FleetCapture& capture) {
    try {
        const SweepResult result = sweepCapture(sweep, folder, capture);
        return format("%zu %zu %zu", result.made, result.failed, result.present);
    } catch (const OutputError& error) {
        return std::string(kOutputFailed) + error.what();
    }
}

// Sums up what the workers say.
class Tally {
  public:
    explicit Tally(const Sweep& sweep) : mSweep(sweep), mBar(STDERR_FILENO) {}

    void take(const FleetCapture& capture, const JobResult& job) {
        ++mDone;
        if (startsWith(job.output, kOutputFailed)) {
            mOutputError = job.output.substr(sizeof(kOutputFailed) - 1);
        } else if (job.error.empty()) {
            add(job.output);
        } else {
            ++mResult.lost;
            mBar.clear();
            complain(capture.name + ": left out: " + reasonOf(job.error, capture));
        }
        mBar.show(mDone, mSweep.captures.size(),
                  format("%s: %zu of %zu captures left, %zu runs failed", mSweep.title.c_str(),
                         mSweep.captures.size() - mDone, mSweep.captures.size(), mResult.failed));
    }

    bool mayGoOn() const { return mOutputError.empty(); }

    SweepResult finish() const {
        if (!mayGoOn()) throw OutputError(mOutputError);
        return mResult;
    }

  private:
    void add(const std::string& text) {
        SweepResult one;
        std::istringstream(text) >> one.made >> one.failed >> one.present;
        mResult.made += one.made;
        mResult.failed += one.failed;
        mResult.present += one.present;
    }

    const Sweep& mSweep;
    Bar mBar;
    size_t mDone = 0;
    std::string mOutputError;
    SweepResult mResult;
};

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
    for (const std::string& option : options) {
        row.options += (row.options.empty() ? "" : " ") + option;
    }
    row.library = sweep.library;
    return row;
}

SweepResult makeRows(const Sweep& sweep) {
    const RowFolder folder(sweep.folder);
    Tally tally(sweep);
    auto next = sweep.captures.begin();
    runJobs(
            [&]() -> Job {
                if (next == sweep.captures.end() || !tally.mayGoOn()) return {};
                const FleetCapture& capture = *next++;
                return [&sweep, &folder, &capture] { return sweepOne(sweep, folder, capture); };
            },
            [&](size_t number, const JobResult& job) { tally.take(sweep.captures[number], job); },
            sweep.jobs);
    return tally.finish();
}

std::string buildOf(const std::string& library) {
    // Not in this process, which shall not run the library's code.
    const JobResult result =
            runJobs(std::vector<Job>{[&]() -> std::string {
                        void* const handle = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
                        const link_map* map = nullptr;
                        if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0) {
                            throw InputError(std::string("cannot open the library: ") + dlerror());
                        }
                        return hashOfFile(map->l_name);
                    }},
                    1)
                    .front();
    if (!result.error.empty()) throw InputError(result.error);
    return result.output;
}

}  // namespace replay
