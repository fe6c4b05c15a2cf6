#pragma once

// Work in forked processes: a run that fails leaves its process in ruins, and one that crashes or
// hangs must not take the campaign along.

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace reliability {

// Shared by a worker with the campaign.
struct Report {
    std::atomic<uint64_t> current{0};  // what the worker is at
    std::atomic<uint64_t> done{0};
    std::atomic<uint64_t> counts[12] = {};
    std::atomic<uint64_t> record{0};
    bool violated = false;
    char invariant[64] = {};
    char text[6000] = {};
};

struct Finding {
    std::string invariant;
    std::string text;
    uint64_t at = 0;  // Report::current
};

class Worker {
  public:
    using Work = std::function<void(Report&)>;

    explicit Worker(const Work& work);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Waits for the end. Returns whether all went well; fills `finding` if not.
    bool wait(Finding& finding);
    void stop();  // if it still runs
    Report& report() { return *mReport; }

    // Called by the work before each of its runs: one that takes longer than a minute hangs outside
    // of all models.
    static void begins(Report& report, uint64_t what);

  private:
    Report* mReport;
    pid_t mPid = -1;
};

}  // namespace reliability
