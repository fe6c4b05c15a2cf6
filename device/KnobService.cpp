// libskewknob_system.so: the feature knobs. The variants of this library leave out an entry point
// by defining CINDRAL_WITHOUT_<name>.

#include "device/Backend.h"
#include "device/ServiceExport.h"

using device::Backend;

#ifndef CINDRAL_WITHOUT_IsFeatureEnabled
SERVICE_EXPORT int IsFeatureEnabled(int id) {
    return Backend::isFeatureEnabled(id);
}
#endif
