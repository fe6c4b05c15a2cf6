// Layer names of any bytes and length: the package is found without harm, and by both ways alike.

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>

#include "perf/LayerName.h"

using namespace android::cindral;

namespace {

// The standard library's matcher takes a thousand times as long, so it is asked for few of the names,
// whatever they look like.
constexpr size_t kCompareOneIn = 1024;

void expect(bool holds) {
    if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string name(reinterpret_cast<const char*>(data), size);
    const std::string package = packageNameOfLongName(name);
    if (!package.empty()) {
        constexpr size_t kPrefixLength = sizeof("SurfaceView[") - 1;
        expect(name.compare(kPrefixLength, package.size(), package) == 0);
        expect(package.find('/') == std::string::npos);
    }
    const bool compares =
            size > kMaxRegexNameLength || std::hash<std::string>()(name) % kCompareOneIn == 0;
    if (compares) expect(packageNameOf(name) == package);
    return 0;
}
