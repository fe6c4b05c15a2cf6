// libnuv-perfd-client_system.so: the client side of the performance service. The variants of this
// library leave out an entry point by defining CINDRAL_WITHOUT_<name>.

#include "device/Backend.h"
#include "device/ServiceExport.h"

using device::Backend;

#ifndef CINDRAL_WITHOUT_perf_get_prop
// Returned by value; its size is part of the binary interface.
struct PropVal {
    char value[92];
};

SERVICE_EXPORT PropVal perf_get_prop(const char* property, const char* defaultValue) {
    PropVal answer{};
    Backend::getProp(property, defaultValue, answer.value, sizeof(answer.value));
    return answer;
}
#endif

#ifndef CINDRAL_WITHOUT_perf_get_feedback
SERVICE_EXPORT int perf_get_feedback(int request, const char* package) {
    return Backend::getFeedback(request, package);
}
#endif

#ifndef CINDRAL_WITHOUT_perf_get_feedback_extn
SERVICE_EXPORT int perf_get_feedback_extn(int request, const char* package, int count,
                                          int* values) {
    return Backend::getFeedbackExtn(request, package, count, values);
}
#endif

#ifndef CINDRAL_WITHOUT_perf_hint
SERVICE_EXPORT int perf_hint(int hintId, const char* package, int duration, int type) {
    return Backend::hint(hintId, package, duration, type);
}
#endif

#ifndef CINDRAL_WITHOUT_perf_lock_acq
SERVICE_EXPORT int perf_lock_acq(int handle, int duration, int* list, int count) {
    return Backend::lockAcquire(handle, duration, list, count);
}
#endif

#ifndef CINDRAL_WITHOUT_perf_lock_rel
SERVICE_EXPORT int perf_lock_rel(int handle) {
    return Backend::lockRelease(handle);
}
#endif

#ifndef CINDRAL_WITHOUT_get_perf_hal_ver
SERVICE_EXPORT double get_perf_hal_ver() {
    return Backend::halVersion();
}
#endif
