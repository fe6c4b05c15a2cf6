#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/DeviceState.h"
#include "device/StandInDevice.h"

namespace device {
namespace {

using Names = std::vector<std::string>;

struct Service {
    const char* fileName;
    EntryPoint first;
    EntryPoint last;
};

constexpr std::array<Service, 2> kServices{{
        {"libskewknob_system.so", EntryPoint::kIsFeatureEnabled, EntryPoint::kIsFeatureEnabled},
        {"libnuv-perfd-client_system.so", EntryPoint::kPerfGetProp,
         EntryPoint::kPerfGetFeedbackExtn},
}};

bool contains(const Names& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

Names entryPointsOf(const Service& service) {
    Names names;
    for (int i = static_cast<int>(service.first); i <= static_cast<int>(service.last); ++i) {
        names.emplace_back(toString(static_cast<EntryPoint>(i)));
    }
    return names;
}

void rejectUnknownNames(const Names& without) {
    Names known;
    for (const Service& service : kServices) {
        const Names entryPoints = entryPointsOf(service);
        known.emplace_back(service.fileName);
        known.insert(known.end(), entryPoints.begin(), entryPoints.end());
    }
    for (const std::string& name : without) {
        if (contains(known, name)) continue;
        throw std::runtime_error("cannot leave out \"" + name +
                                 "\": neither a service library nor an entry point");
    }
}

// The folder of this very library: the service libraries lie in folders below it, built or
// installed.
std::string homeFolder() {
    // A variable, not a function: a function's address may be that of a stub in the executable.
    static const char anchor = 0;
    Dl_info info{};
    if (dladdr(&anchor, &info) == 0 || !info.dli_fname) {
        throw std::runtime_error("cannot find the service libraries: dladdr knows no own path");
    }
    const std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "./" : path.substr(0, slash + 1);
}

// Not beside this library: programs that link it have its folder in their run path, and a service
// library that shall be missing would be found there by its bare name.
std::string pathOf(const Service& service, const Names& without) {
    std::string folder = "services/";
    int missing = 0;
    for (const std::string& entryPoint : entryPointsOf(service)) {
        if (!contains(without, entryPoint)) continue;
        folder = "without/" + entryPoint + '/';
        ++missing;
    }
    if (missing > 1) {
        throw std::runtime_error(std::string("cannot leave out several entry points of ") +
                                 service.fileName + ": only single ones are built");
    }
    return homeFolder() + folder + service.fileName;
}

void* open(const std::string& path) {
    void* const handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle) return handle;
    // The loader's line begins with the path.
    throw std::runtime_error(std::string("cannot open service library: ") + dlerror());
}

void closeAll(const std::vector<void*>& handles) {
    for (void* handle : handles) dlclose(handle);
}

}  // namespace

ServiceLibraries::ServiceLibraries(const std::vector<std::string>& without) {
    rejectUnknownNames(without);
    std::vector<std::string> paths;
    for (const Service& service : kServices) {
        if (!contains(without, service.fileName)) paths.push_back(pathOf(service, without));
    }
    try {
        for (const std::string& path : paths) mHandles.push_back(open(path));
    } catch (...) {
        closeAll(mHandles);
        throw;
    }
}

ServiceLibraries::~ServiceLibraries() {
    closeAll(mHandles);
}

}  // namespace device
