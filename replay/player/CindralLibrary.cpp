#include "replay/player/CindralLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

namespace replay {

namespace {

// The mangled name holds the standard library's name for std::string.
#ifdef _LIBCPP_VERSION
constexpr char kUpdateLayerList[] =
        "_ZN7android21updateLayerListLockedERKNSt3__112basic_stringIcNS0_11char_traitsIcEENS0_"
        "9allocatorIcEEEEb";
#else
constexpr char kUpdateLayerList[] =
        "_ZN7android21updateLayerListLockedERKNSt7__cxx1112basic_stringIcSt11char_"
        "traitsIcESaIcEEEb";
#endif

std::string loaderError() {
    const char* text = dlerror();
    return text == nullptr ? "unknown error" : text;
}

}  // namespace

template <typename Function>
void CindralLibrary::bind(Function*& function, const char* name) {
    function = reinterpret_cast<Function*>(dlsym(mHandle, name));
    if (function != nullptr) return;
    const std::string cause = loaderError();
    dlclose(mHandle);
    throw std::runtime_error(mPath + ": entry point missing: " + cause);
}

CindralLibrary::CindralLibrary(const std::string& path) : mPath(path) {
    mHandle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (mHandle == nullptr) throw std::runtime_error("cannot open the library: " + loaderError());
    bind(init, "cindralInit");
    bind(setVsyncPeriod, "cindralSetVsyncPeriod");
    bind(trackBufferIncrement, "cindralTrackBufferIncrement");
    bind(trackBufferDecrement, "cindralTrackBufferDecrement");
    bind(trackVsyncSignal, "cindralTrackVsyncSignal");
    bind(clearConfigs, "_ZN7android12clearConfigsEv");
    bind(updateLayerListLocked, kUpdateLayerList);
}

CindralLibrary::~CindralLibrary() {
    dlclose(mHandle);
}

}  // namespace replay
