#include "sim/RealCalls.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace sim {

void* findRealCall(const char* name) {
    // Without a version: the default one differs between architectures.
    void* function = dlsym(RTLD_NEXT, name);
    if (!function) {
        fprintf(stderr, "sim: no real %s behind the interposed one\n", name);
        abort();
    }
    return function;
}

}  // namespace sim
