#include "tests/reliability/Workers.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "tests/reliability/Violation.h"

namespace reliability {

namespace {

constexpr unsigned kHangsAfterSeconds = 60;
constexpr int kRaceCode = 66;  // of the thread sanitizer

Report* gReport = nullptr;  // of the worker that this process is

[[noreturn]] void doWork(const Worker::Work& work, Report& report) {
    gReport = &report;
    const rlimit noCore{0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    work(report);
    _exit(0);
}

std::string describeEnd(int status) {
    if (!WIFSIGNALED(status)) return "exit code " + std::to_string(WEXITSTATUS(status));
    if (WTERMSIG(status) == SIGALRM) return "hangs outside the simulation";
    return strsignal(WTERMSIG(status));
}

}  // namespace

// The thread sanitizer's options.
extern "C" const char* __tsan_default_options() {
    return "halt_on_error=1";
}

void violate(const char* invariant, const std::string& text) {
    if (gReport == nullptr) {
        std::fprintf(stderr, "violated: %s\n%s\n", invariant, text.c_str());
        std::abort();
    }
    gReport->violated = true;
    std::snprintf(gReport->invariant, sizeof(gReport->invariant), "%s", invariant);
    std::snprintf(gReport->text, sizeof(gReport->text), "%s", text.c_str());
    _exit(1);
}

Worker::Worker(const Work& work) {
    void* const page = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) throw std::runtime_error("no memory for a worker's report");
    mReport = new (page) Report;
    std::fflush(nullptr);
    mPid = fork();
    if (mPid < 0) throw std::runtime_error("cannot start a worker: fork failed");
    if (mPid == 0) doWork(work, *mReport);
}

Worker::~Worker() {
    stop();
    munmap(mReport, sizeof(Report));
}

void Worker::stop() {
    if (mPid < 0) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = -1;
}

bool Worker::wait(Finding& finding) {
    int status = 0;
    waitpid(mPid, &status, 0);
    mPid = -1;
    if (status == 0) return true;
    finding.at = mReport->current;
    const bool race = WIFEXITED(status) && WEXITSTATUS(status) == kRaceCode;
    finding.invariant = mReport->violated ? mReport->invariant : race ? "no-race" : "no-crash";
    finding.text = mReport->violated ? mReport->text : describeEnd(status);
    return false;
}

void Worker::begins(Report& report, uint64_t what) {
    report.current = what;
    alarm(kHangsAfterSeconds);
}

}  // namespace reliability
