#include "platform/Thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

namespace android::cindral {

namespace {
constexpr int kThreadNice = -8;
constexpr int kThreadFifoPriority = 1;
}  // namespace

void nameThread(std::thread& thread, const char* name) {
    pthread_setname_np(thread.native_handle(), name);
}

void enterRealtimeScheduling() {
    setpriority(PRIO_PROCESS, 0, kThreadNice);
    sched_param parameters{};
    parameters.sched_priority = kThreadFifoPriority;
    sched_setscheduler(0, SCHED_FIFO, &parameters);
}

}  // namespace android::cindral
