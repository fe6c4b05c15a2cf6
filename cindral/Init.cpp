// The decision which features run.

#include <cstring>
#include <new>

#include "cindral/Contain.h"
#include "cindral/ModuleState.h"
#include "platform/Log.h"

namespace android {

using namespace cindral;

namespace {

// What the numbers mean is the feature library's business.
constexpr int kFrameRegulatorKnob = 5;
constexpr int kHeadroomKnob = 6;
constexpr int kFrameRegulator2Knob = 7;

bool isOn(PerfProxy& client, const char* property) {
    return client.perfGetProp(property, "0").isOn();
}

void decideFirstGeneration(PerfProxy& client) {
    const int frameRegulatorKnob = client.featureKnob(kFrameRegulatorKnob);
    const int headroomKnob = client.featureKnob(kHeadroomKnob);
    if (frameRegulatorKnob == 0 && headroomKnob == 0) return;
    const bool frameRegulator = isOn(client, "vendor.perf.pfar.enable");
    const bool headroom = isOn(client, "vendor.perf.phr.enable");
    gDebuggable = isOn(client, "vendor.perf.cindral.debug");
    client.setDebuggable(gDebuggable);
    gGfarEnabled = frameRegulatorKnob != 0 && frameRegulator;
    gPhrEnabled = headroomKnob != 0 && headroom;
}

// Consulted only when the first generation did not turn the frame regulator on.
void decideSecondGeneration(PerfProxy& client) {
    const int knob = client.featureKnob(kFrameRegulator2Knob);
    const bool enabled = isOn(client, "vendor.perf.pfar2.enable");
    gGfarEnabled = knob != 0 && enabled;
}

void decideFeatures(PerfProxy& client) {
    decideFirstGeneration(client);
    if (!gGfarEnabled) decideSecondGeneration(client);
    const PropertyValue allowed = client.perfGetProp("ro.vendor.perf.zgpe", "true");
    if (std::strcmp(allowed.text, "true") != 0) gGfarEnabled = false;
    // As an error, so that the decision shows whatever the log level.
    CINDRAL_LOGE(kModuleTag, "[GFAR:%d][PHR:%d]", gGfarEnabled ? 1 : 0, gPhrEnabled ? 1 : 0);
}

bool initialize() {
    Mutex::Autolock lock(gInitLock);
    if (!gInitialized) {
        clearConfigs();
        const sp<PerfProxy> client = new (std::nothrow) PerfProxy();
        replaceModuleClient(client);
        // gActive keeps its value: layers that are tracked go on being served, and a later call tries
        // again.
        if (client == nullptr) return false;
        decideFeatures(*client);
        gInitialized = true;
    }
    gActive = gGfarEnabled || gPhrEnabled;
    return gActive;
}

}  // namespace

void clearConfigs() {
    gInitialized = false;
    gPhrEnabled = false;
    gGfarEnabled = false;
    gDebuggable = false;
}

}  // namespace android

bool cindralInit(void) {
    return android::contain<android::initialize>();
}
