#include "device/CindralLibrary.h"

#include <dlfcn.h>

#include <stdexcept>

namespace device {

namespace {

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
}

CindralLibrary::~CindralLibrary() {
    dlclose(mHandle);
}

}  // namespace device
