// The classification part of PerfProxy: from a layer's name to the service's word on its package.

#include "perf/LayerName.h"
#include "perf/PerfProxy.h"
#include "platform/Log.h"

namespace android {

using namespace cindral;

std::string PerfProxy::getPackageName(const std::string& layerName) {
    return packageNameOf(layerName);
}

bool PerfProxy::isGameLayer(const std::string& layerName) {
    const std::string package = getPackageName(layerName);
    const bool isGame =
            !package.empty() && perfGetFeedback(kGameRequestId, package.c_str()) == kGameVerdict;
    CINDRAL_LOGD(mDebuggable, kPerfProxyTag, "isGameLayer:%d [%s][%s]", isGame ? 1 : 0,
                 layerName.c_str(), package.c_str());
    return isGame;
}

int PerfProxy::getGameWeight(const std::string& layerName) noexcept {
    try {
        const std::string package = getPackageName(layerName);
        const int weight = package.empty() ? kUnavailable : queryGameWeight(package);
        CINDRAL_LOGD(mDebuggable, kPerfProxyTag, "GameWeight:%d [%s][%s]", weight,
                     layerName.c_str(), package.c_str());
        return weight;
    } catch (...) {
        return kUnavailable;  // out of memory is no answer either
    }
}

int PerfProxy::queryGameWeight(const std::string& package) {
    if (mHalVersion > kLastHalVersionWithoutExtn) {
        int values[] = {1, 0};
        return perfGetFeedbackExtn(kGameRequestId, package.c_str(), 2, values);
    }
    // Older services answer the weight as the result of a hint.
    constexpr int kWeightDuration = 0;
    constexpr int kWeightType = 1;
    return perfHint(kGameRequestId, package.c_str(), kWeightDuration, kWeightType);
}

}  // namespace android
