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

Row played(const RowKey& key, const FleetCapture& capture, const Input& input, const Setup& setup) {
    const Job job = [&] { return toText(rowOf(key, playInput(input, setup).findings)); };
    const JobResult result = runJobs(std::vector<Job>{job}, 1).front();
    if (result.error.empty()) return parseRow(result.output, capture.path);
    if (result.signal != 0 && !isOwnFault(result.signal)) throw ReplayError(result.error);
    return failedRow(key, reasonOf(result.error, capture));
}

// What a worker does with one capture.
class CaptureSweep {
  public:
    CaptureSweep(const Sweep& sweep, const RowFolder& folder, const FleetCapture& capture)
          : mSweep(sweep), mFolder(folder), mCapture(capture) {}

    SweepResult run() {
        const std::string hash = mCapture.hash.empty() ? hashOfFile(mCapture.path) : mCapture.hash;
        mFolder.put(CaptureRecord{hash, mCapture.name, mCapture.columns});
        for (const Setup& setup : mSweep.setups) {
            const RowKey key = keyOf(mSweep, hash, setup);
            if (mFolder.find(key)) {
                ++mResult.present;
            } else {
                mMissing.emplace_back(key, &setup);
            }
        }
        if (!mMissing.empty()) makeMissing();
        return mResult;
    }

  private:
    void makeMissing() {
        try {
            InputChoice choice;
            choice.capture = mCapture.path;
            choice.layerPattern = mSweep.layerPattern;
            const Input input = openInput(choice);
            for (const auto& [key, setup] : mMissing) put(played(key, mCapture, input, *setup));
        } catch (const InputError& error) {
            const std::string reason = reasonOf(error.what(), mCapture);
            for (const auto& [key, setup] : mMissing) put(failedRow(key, reason));
        }
    }

    void put(const Row& row) {
        mFolder.put(row);
        ++mResult.made;
        if (!row.failure.empty()) ++mResult.failed;
    }

    const Sweep& mSweep;
    const RowFolder& mFolder;
    const FleetCapture& mCapture;
    std::vector<std::pair<RowKey, const Setup*>> mMissing;
    SweepResult mResult;
};

constexpr char kOutputFailed[] = "output ";

std::string resultText(const SweepResult& result) {
    return format("%zu %zu %zu", result.made, result.failed, result.present);
}

// A full disk is one trouble, however many captures it meets.
std::string sweepOne(const Sweep& sweep, const RowFolder& folder, const FleetCapture& capture) {
    try {
        return resultText(CaptureSweep(sweep, folder, capture).run());
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

RowKey keyOf(const Sweep& sweep, const std::string& capture, const Setup& setup) {
    RowKey key;
    key.capture = capture;
    key.setting = setup.label;
    for (const std::string& option : setup.toOptions()) {
        key.options += (key.options.empty() ? "" : " ") + option;
    }
    if (!sweep.layerPattern.empty()) key.options += " --layer " + sweep.layerPattern;
    key.library = sweep.library;
    return key;
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
