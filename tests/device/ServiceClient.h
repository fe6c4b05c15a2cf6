#pragma once

#include <dlfcn.h>

#include <string>

// The service libraries as a client sees them: bare file names, plain symbols.

inline constexpr char kKnobLibrary[] = "libskewknob_system.so";
inline constexpr char kPerfLibrary[] = "libnuv-perfd-client_system.so";

class OpenedLibrary {
  public:
    explicit OpenedLibrary(const char* bareName) : mHandle(dlopen(bareName, RTLD_NOW)) {}
    ~OpenedLibrary() {
        if (mHandle) dlclose(mHandle);
    }
    OpenedLibrary(const OpenedLibrary&) = delete;
    OpenedLibrary& operator=(const OpenedLibrary&) = delete;

    bool isOpen() const { return mHandle != nullptr; }

    // Null if the library or the symbol is missing.
    template <typename Function>
    Function* find(const char* symbol) const {
        return mHandle ? reinterpret_cast<Function*>(dlsym(mHandle, symbol)) : nullptr;
    }

  private:
    void* const mHandle;
};

struct PropertyRecord {
    char value[92];
};

struct ServiceClient {
    OpenedLibrary knobLibrary{kKnobLibrary};
    OpenedLibrary perfLibrary{kPerfLibrary};

    int (*isFeatureEnabled)(int) = knobLibrary.find<int(int)>("IsFeatureEnabled");
    PropertyRecord (*getProp)(const char*, const char*) =
            perfLibrary.find<PropertyRecord(const char*, const char*)>("perf_get_prop");
    int (*getFeedback)(int,
                       const char*) = perfLibrary.find<int(int, const char*)>("perf_get_feedback");
    int (*getFeedbackExtn)(int, const char*, int, int*) =
            perfLibrary.find<int(int, const char*, int, int*)>("perf_get_feedback_extn");
    int (*hint)(int, const char*, int,
                int) = perfLibrary.find<int(int, const char*, int, int)>("perf_hint");
    int (*lockAcq)(int, int, int*,
                   int) = perfLibrary.find<int(int, int, int*, int)>("perf_lock_acq");
    int (*lockRel)(int) = perfLibrary.find<int(int)>("perf_lock_rel");
    double (*getHalVersion)() = perfLibrary.find<double()>("get_perf_hal_ver");
};
