#include "replay/capture/PerfettoScheduling.h"

#include <algorithm>

namespace replay {

namespace {

// The states in which a thread waits; bits above them mark a preemption.
constexpr int64_t kBlockedStates = 0xff;
constexpr uint32_t kInterruptFlags = 0x18;  // hard and soft
constexpr uint64_t kMaxTimestampNs = 1'000'000'000'000'000'000;
constexpr uint32_t kMaxCpus = 4096;

void useEvent(const perfetto::FtraceEvent& event, SchedulingBuilder& scheduling) {
    if (event.timestamp() > kMaxTimestampNs) return;
    const auto timeNs = static_cast<int64_t>(event.timestamp());
    const auto running = static_cast<int>(event.pid());
    if (event.has_sched_switch()) {
        const perfetto::SchedSwitch& change = event.sched_switch();
        scheduling.addName(change.prev_pid(), change.prev_comm());
        scheduling.addName(change.next_pid(), change.next_comm());
        const bool runnable = (change.prev_state() & kBlockedStates) == 0;
        scheduling.addSwitch(timeNs, change.prev_pid(), runnable, change.next_pid());
    } else if (event.has_sched_wakeup() || event.has_sched_waking()) {
        const perfetto::SchedWakeup& wake =
                event.has_sched_waking() ? event.sched_waking() : event.sched_wakeup();
        scheduling.addName(wake.pid(), wake.comm());
        scheduling.addWake(timeNs, event.has_sched_waking(), running, wake.pid(), false);
    } else if (event.has_binder_transaction()) {
        scheduling.addCall(timeNs, running, event.binder_transaction().debug_id());
    } else if (event.has_binder_transaction_received()) {
        scheduling.addCalled(timeNs, running, event.binder_transaction_received().debug_id());
    }
}

}  // namespace

void PerfettoScheduling::use(const perfetto::FtraceEventBundle& bundle,
                             SchedulingBuilder& scheduling) {
    for (const perfetto::FtraceEvent& event : bundle.event()) useEvent(event, scheduling);
    if (bundle.has_compact_sched() && bundle.cpu() < kMaxCpus)
        useColumns(bundle.cpu(), bundle.compact_sched(), scheduling);
}

void PerfettoScheduling::useColumns(uint32_t cpu, const perfetto::CompactSched& columns,
                                    SchedulingBuilder& scheduling) {
    const int switches = std::min({columns.switch_timestamp_size(), columns.switch_next_pid_size(),
                                   columns.switch_prev_state_size()});
    const int wakings = std::min(columns.waking_timestamp_size(), columns.waking_pid_size());
    uint64_t wakingNs = 0;
    uint64_t switchNs = 0;
    int waking = 0;
    auto running = mRunning.find(cpu);
    // The waker is whoever ran on this processor.
    const auto wakeUntil = [&](uint64_t endNs) {
        for (; waking < wakings; ++waking) {
            const uint64_t timeNs = wakingNs + columns.waking_timestamp(waking);
            if (timeNs >= endNs) return;
            wakingNs = timeNs;
            const bool interrupt = waking < columns.waking_common_flags_size() &&
                                   (columns.waking_common_flags(waking) & kInterruptFlags) != 0;
            if (running == mRunning.end()) continue;
            scheduling.addWake(static_cast<int64_t>(timeNs), true, running->second,
                               columns.waking_pid(waking), interrupt);
        }
    };
    for (int i = 0; i < switches; ++i) {
        switchNs += columns.switch_timestamp(i);
        if (switchNs > kMaxTimestampNs) return;
        wakeUntil(switchNs);
        const int next = columns.switch_next_pid(i);
        const bool runnable = (columns.switch_prev_state(i) & kBlockedStates) == 0;
        const int previous = running == mRunning.end() ? kIdleThread : running->second;
        scheduling.addSwitch(static_cast<int64_t>(switchNs), previous, runnable, next);
        running = mRunning.insert_or_assign(cpu, next).first;
        const bool named = i < columns.switch_next_comm_index_size() &&
                           columns.switch_next_comm_index(i) <
                                   static_cast<uint32_t>(columns.intern_table_size());
        if (named) {
            const auto index = static_cast<int>(columns.switch_next_comm_index(i));
            scheduling.addName(next, columns.intern_table(index));
        }
    }
    wakeUntil(kMaxTimestampNs);
}

}  // namespace replay
