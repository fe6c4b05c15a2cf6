// Property values of any bytes: every way of reading one is defined, and what is made of the number
// stays in its bounds.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "headroom/HeadroomRules.h"
#include "perf/PropertyValue.h"
#include "power/PowerRules.h"

using namespace android;
using namespace android::cindral;

namespace {

void expect(bool holds) {
    if (!holds) std::abort();
}

void useAsMinRate(float rate) {
    constexpr struct {
        int64_t periodNs;
        int32_t displayClass;
    } kDisplays[] = {{16'666'667, 60}, {11'111'111, 90}, {6'944'444, 144}};
    for (const auto& display : kDisplays) {
        const HeadroomBounds bounds = headroomBounds(display.periodNs, display.displayClass, rate);
        // So far from the ends of the range that a timer made of it cannot leave it.
        expect(bounds.min < INT64_MAX / 4 && bounds.min > INT64_MIN / 4);
        expect(bounds.max > 0 && bounds.max < display.periodNs);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const PropertyValue value = PropertyValue::copyOf(text.c_str());
    expect(value.text[PropertyValue::kSize - 1] == '\0');
    expect(value.isOn() == (value.toInt() == 1));
    const int32_t threshold = clampedRenderTimeThresh(value.toInt());
    expect(threshold >= kMinThresh && threshold <= kMaxRenderTimeThresh);
    int level = 1;
    value.extractTo(level);
    bool isSet = false;
    value.extractTo(isSet);
    float rate = 0;
    value.extractTo(rate);
    useAsMinRate(rate);
    return 0;
}
