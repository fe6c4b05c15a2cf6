#include "replay/plan/Jobs.h"

#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "replay/base/Error.h"

namespace replay {

namespace {

enum ChildStatus { kChildDone = 0, kChildBadInput = 2, kChildFailed = 3 };

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
[[noreturn]] void runChild(const std::function<std::string()>& job, int pipe) {
    ChildStatus status = kChildDone;
    std::string text;
    try {
        text = job();
    } catch (const InputError& error) {
        status = kChildBadInput;
        text = error.what();
    } catch (const std::exception& error) {
        status = kChildFailed;
        text = error.what();
    }
    writeAll(pipe, text);
    _exit(status);
}

Child start(const std::function<std::string()>& job, size_t index) {
    int ends[2];
    if (pipe(ends) != 0) throw ReplayError(std::string("no pipe: ") + std::strerror(errno));
    Child child;
    child.job = index;
    child.pid = fork();
    if (child.pid < 0) throw ReplayError(std::string("no new process: ") + std::strerror(errno));
    if (child.pid == 0) {
        close(ends[0]);
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
    } else {
        result.error = "the run ended by signal " + std::to_string(WTERMSIG(status));
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

std::vector<JobResult> runJobs(const std::vector<std::function<std::string()>>& jobs,
                               unsigned limit) {
    std::vector<JobResult> results(jobs.size());
    std::vector<Child> children;
    std::vector<pollfd> ready;
    size_t next = 0;
    while (next < jobs.size() || !children.empty()) {
        for (; next < jobs.size() && children.size() < std::max(1U, limit); ++next) {
            children.push_back(start(jobs[next], next));
        }
        waitForAny(children, ready);
        for (size_t i = children.size(); i-- > 0;) {
            if (ready[i].revents == 0 || receive(children[i])) continue;
            results[children[i].job] = finish(children[i]);
            children.erase(children.begin() + static_cast<ptrdiff_t>(i));
        }
    }
    return results;
}

unsigned usableProcessors() {
    cpu_set_t usable;
    if (sched_getaffinity(0, sizeof(usable), &usable) != 0) return 1;
    return static_cast<unsigned>(std::max(1, CPU_COUNT(&usable)));
}

}  // namespace replay
