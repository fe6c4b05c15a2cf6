#pragma once

#include <dlfcn.h>

// The service libraries as a client sees them: bare file names, plain symbols. They have to be open.
struct ServiceClient {
    struct PropertyRecord {
        char value[92];
    };

    template <typename Function>
    static Function* find(const char* library, const char* symbol) {
        void* const handle = dlopen(library, RTLD_NOW);
        auto* const found = reinterpret_cast<Function*>(dlsym(handle, symbol));
        dlclose(handle);
        return found;
    }
    template <typename Function>
    static Function* inClient(const char* symbol) {
        return find<Function>("libnuv-perfd-client_system.so", symbol);
    }

    int (*isFeatureEnabled)(int) = find<int(int)>("libskewknob_system.so", "IsFeatureEnabled");
    PropertyRecord (*getProp)(const char*, const char*) =
            inClient<PropertyRecord(const char*, const char*)>("perf_get_prop");
    int (*getFeedback)(int, const char*) = inClient<int(int, const char*)>("perf_get_feedback");
    int (*getFeedbackExtn)(int, const char*, int, int*) =
            inClient<int(int, const char*, int, int*)>("perf_get_feedback_extn");
    int (*hint)(int, const char*, int,
                int) = inClient<int(int, const char*, int, int)>("perf_hint");
    int (*lockAcq)(int, int, int*, int) = inClient<int(int, int, int*, int)>("perf_lock_acq");
    int (*lockRel)(int) = inClient<int(int)>("perf_lock_rel");
    double (*getHalVersion)() = inClient<double()>("get_perf_hal_ver");
};
