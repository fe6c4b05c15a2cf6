#include "replay/plan/Jobs.h"

#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "replay/base/Error.h"

namespace replay {

namespace {

enum ChildStatus { kChildDone = 0, kChildBadInput = 2, kChildFailed = 3, kChildOutputFailed = 4 };

struct Child {
    pid_t pid = -1;
    int pipe = -1;
    size_t job = 0;
    std::string received;
};

void writeAll(int descriptor, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(descriptor, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return;  // nobody reads any more
        done += static_cast<size_t>(count);
    }
}

// Ends without clean-up: after a failed run nothing of it may be touched, and buffered output
// belongs to the parent.
[[noreturn]] void runChild(const Job& job, int pipe) {
    ChildStatus status = kChildDone;
    std::string text;
    try {
        text = job();
    } catch (const InputError& error) {
        status = kChildBadInput;
        text = error.what();
    } catch (const OutputError& error) {
        status = kChildOutputFailed;
        text = error.what();
    } catch (const std::exception& error) {
        status = kChildFailed;
        text = error.what();
    }
    writeAll(pipe, text);
    _exit(status);
}

// A parent that was killed cannot end its children itself.
void endWith(pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(kChildFailed);  // it ended before it was asked for
}

Child start(const Job& job, size_t index) {
    int ends[2];
    if (pipe(ends) != 0) throw ReplayError(std::string("no pipe: ") + std::strerror(errno));
    Child child;
    child.job = index;
    const pid_t parent = getpid();
    child.pid = fork();
    if (child.pid < 0) throw ReplayError(std::string("no new process: ") + std::strerror(errno));
    if (child.pid == 0) {
        close(ends[0]);
        endWith(parent);
        runChild(job, ends[1]);
    }
    close(ends[1]);
    child.pipe = ends[0];
    return child;
}

JobResult finish(Child& child) {
    close(child.pipe);
    int status = 0;
    while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) {
    }
    JobResult result;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kChildDone) {
        result.output = std::move(child.received);
    } else if (WIFEXITED(status)) {
        result.error = std::move(child.received);
        result.badInput = WEXITSTATUS(status) == kChildBadInput;
        result.outputFailed = WEXITSTATUS(status) == kChildOutputFailed;
    } else {
        result.signal = WTERMSIG(status);
        result.error = "the run ended by signal " + std::to_string(result.signal);
    }
    return result;
}

// Takes what has come. False at the end.
bool receive(Child& child) {
    char block[65536];
    const ssize_t count = read(child.pipe, block, sizeof(block));
    if (count < 0 && errno == EINTR) return true;
    if (count <= 0) return false;
    child.received.append(block, static_cast<size_t>(count));
    return true;
}

void waitForAny(const std::vector<Child>& children, std::vector<pollfd>& ready) {
    ready.clear();
    for (const Child& child : children) ready.push_back({child.pipe, POLLIN, 0});
    while (poll(ready.data(), ready.size(), -1) < 0 && errno == EINTR) {
    }
}

}  // namespace

void runJobs(const std::function<Job()>& next,
             const std::function<void(size_t job, const JobResult& result)>& done, unsigned limit) {
    std::vector<Child> children;
    std::vector<pollfd> ready;
    size_t count = 0;
    Job job = next();
    while (job || !children.empty()) {
        for (; job && children.size() < std::max(1U, limit); job = next()) {
            children.push_back(start(job, count++));
        }
        waitForAny(children, ready);
        for (size_t i = children.size(); i-- > 0;) {
            if (ready[i].revents == 0 || receive(children[i])) continue;
            const size_t number = children[i].job;
            const JobResult result = finish(children[i]);
            children.erase(children.begin() + static_cast<ptrdiff_t>(i));
            done(number, result);
        }
    }
}

std::vector<JobResult> runJobs(const std::vector<Job>& jobs, unsigned limit) {
    std::vector<JobResult> results(jobs.size());
    auto job = jobs.begin();
    runJobs([&] { return job == jobs.end() ? Job() : *job++; },
            [&](size_t number, const JobResult& result) { results[number] = result; }, limit);
    return results;
}

unsigned usableProcessors() {
    cpu_set_t usable;
    if (sched_getaffinity(0, sizeof(usable), &usable) != 0) return 1;
    return static_cast<unsigned>(std::max(1, CPU_COUNT(&usable)));
}

}  // namespace replay
