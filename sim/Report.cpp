#include "sim/Report.h"

#include <algorithm>
#include <cstdio>

namespace sim {

namespace {

std::string seconds(int64_t timeNs) {
    char text[40];
    snprintf(text, sizeof(text), "%lld.%09lld s", static_cast<long long>(timeNs / kNsPerSecond),
             static_cast<long long>(timeNs % kNsPerSecond));
    return text;
}

std::string holderOf(const Engine& engine, int mutex) {
    for (const auto& thread : engine.threads()) {
        const auto& held = thread->heldMutexes;
        if (std::find(held.begin(), held.end(), mutex) != held.end()) {
            return nameOf(*thread) + (thread->ended ? ", which has ended" : "");
        }
    }
    return "nobody";
}

std::string describeWait(const Engine& engine, const Thread& thread) {
    const std::string number = std::to_string(thread.wait.object);
    const std::string deadline =
            thread.wait.deadlineNs == kNever ? "" : " until " + seconds(thread.wait.deadlineNs);
    switch (thread.wait.kind) {
        case WaitKind::kNothing:
            return &thread == &engine.current() ? "running" : "can run";
        case WaitKind::kMutex:
            return "waits for mutex #" + number + ", held by " +
                   holderOf(engine, thread.wait.object);
        case WaitKind::kCondition:
            return "waits for condition #" + number + deadline;
        case WaitKind::kJoin:
            return "waits for the end of " +
                   nameOf(*engine.threads()[static_cast<size_t>(thread.wait.object)]);
        case WaitKind::kSleep:
            return "sleeps" + deadline;
        case WaitKind::kYield:
            return "yields until another makes progress";
    }
    return "";
}

std::string describeThread(const Engine& engine, const Thread& thread) {
    std::string text = "  " + nameOf(thread) + ": ";
    text += thread.ended ? "ended, not joined" : describeWait(engine, thread);
    for (size_t i = 0; i < thread.heldMutexes.size(); ++i) {
        text += (i == 0 ? "; holds mutex #" : ", #") + std::to_string(thread.heldMutexes[i]);
    }
    return text + "\n";
}

}  // namespace

std::string nameOf(const Thread& thread) {
    std::string text = "thread " + std::to_string(thread.record.id);
    if (!thread.record.name.empty()) return text + " \"" + thread.record.name + "\"";
    return text + (thread.record.id == 0 ? " (the body)" : "");
}

std::string describeFailure(const Engine& engine, Failure failure, const std::string& what,
                            uint64_t steps) {
    const int64_t elapsedNs = engine.now() - engine.options().startTimeNs;
    std::string text = std::string("simulation failed: ") + toString(failure) + ": " + what + "\n" +
                       engine.strategy().describe() + "\nvirtual time " + seconds(engine.now()) +
                       ", " + std::to_string(elapsedNs) + " ns after the start; step " +
                       std::to_string(steps) + "\n";
    for (const auto& thread : engine.threads()) {
        const bool gone = thread->ended && (thread->joined || thread->detached);
        if (!gone || !thread->heldMutexes.empty()) text += describeThread(engine, *thread);
    }
    return text;
}

}  // namespace sim
