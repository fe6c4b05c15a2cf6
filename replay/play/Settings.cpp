#include "replay/play/Settings.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

// Longer names resemble none.
constexpr size_t kMaxComparedChars = 91;
constexpr size_t kEffectColumn = 40;  // wider than any name

enum class Kind { kSwitch, kWholeNumber, kRealNumber, kTruth };

struct Property {
    const char* name;
    Kind kind;
    const char* effect;
    // Of the numbers: the range that makes sense on a device. The library takes others too, as they are.
    double least = 0;
    double most = 0;
};

constexpr Property kProperties[] = {
        {"ro.vendor.perf.zgpe", Kind::kTruth, "false: no frame regulator, whatever else is set"},
        {"vendor.perf.cindral.debug", Kind::kSwitch, "log lines, markers and thread names"},
        {"vendor.perf.pfar.enable", Kind::kSwitch, "the frame regulator, on some devices"},
        {"vendor.perf.pfar2.boost_level", Kind::kWholeNumber,
         "the first checkpoint that is boosted; 4: none", 0, 4},
        {"vendor.perf.pfar2.disable_core_ctl", Kind::kSwitch, "core control may go off"},
        {"vendor.perf.pfar2.disable_pl", Kind::kSwitch, "PL may go off"},
        {"vendor.perf.pfar2.enable", Kind::kSwitch, "the frame regulator, on the others"},
        {"vendor.perf.pfar2.hgpe.enable", Kind::kSwitch, "negative boosts"},
        {"vendor.perf.pfar2.hgpe.max_neboost", Kind::kWholeNumber,
         "the strongest negative boost, in percent; 0: the library's own", -100, 0},
        {"vendor.perf.pfar2.hgpe.max_rendertime", Kind::kWholeNumber,
         "percent of the period an early frame may take; 0: the library's own", 0, 100},
        {"vendor.perf.phr.enable", Kind::kSwitch, "the headroom regulator"},
        {"vendor.perf.phr.hr_min_rate", Kind::kRealNumber,
         "the smallest headroom, as a share of the period", 0, 1},
};

size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// Known ones, the nearest first.
std::string suggestions(const std::string& name) {
    std::vector<std::string> names;
    for (const Property& property : kProperties) names.emplace_back(property.name);
    const std::string_view compared = std::string_view(name).substr(0, kMaxComparedChars);
    std::stable_sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
        return editDistance(compared, a) < editDistance(compared, b);
    });
    std::string text = "did you mean " + names.front() + "? The others are ";
    for (size_t i = 1; i < names.size(); ++i) text += (i > 1 ? ", " : "") + names[i];
    return text;
}

std::string rangeOf(const Property& property) {
    return format(" from %g to %g", property.least, property.most);
}

std::string valuesOf(const Property& property) {
    switch (property.kind) {
        case Kind::kSwitch:
            return "0 or 1";
        case Kind::kTruth:
            return "true or false";
        case Kind::kWholeNumber:
            return "a whole number" + rangeOf(property);
        case Kind::kRealNumber:
            return "a number" + rangeOf(property);
    }
    return "";
}

bool takes(const Property& property, const std::string& value) {
    const auto inRange = [&](double number) {
        return number >= property.least && number <= property.most;
    };
    int whole = 0;
    double real = 0;
    switch (property.kind) {
        case Kind::kSwitch:
            return value == "0" || value == "1";
        case Kind::kTruth:
            return value == "true" || value == "false";
        case Kind::kWholeNumber:
            return toNumber(value, whole) && inRange(whole);
        case Kind::kRealNumber:
            return toNumber(value, real) && inRange(real);
    }
    return false;
}

const Property& propertyNamed(const std::string& name) {
    for (const Property& property : kProperties) {
        if (property.name == name) return property;
    }
    throw InputError("--set: the library reads no property " + inQuotes(name) + "; " +
                     suggestions(name));
}

}  // namespace

Settings::Settings()
      : mProperties{{"vendor.perf.cindral.debug", "1"},
                    {"vendor.perf.pfar2.enable", "1"},
                    {"vendor.perf.pfar2.hgpe.enable", "1"},
                    {"vendor.perf.phr.enable", "1"}} {}

void Settings::set(const std::string& assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw InputError("--set " + inQuotes(assignment) + ": give PROPERTY=VALUE");
    }
    const Property& property = propertyNamed(assignment.substr(0, equals));
    const std::string value = assignment.substr(equals + 1);
    if (!takes(property, value)) {
        throw InputError(std::string("--set ") + property.name + "=" + inQuotes(value) + ": give " +
                         valuesOf(property));
    }
    mProperties[property.name] = value;
}

bool takesWholeNumbers(const std::string& property) {
    const Kind kind = propertyNamed(property).kind;
    return kind == Kind::kSwitch || kind == Kind::kWholeNumber;
}

std::string describeProperties() {
    std::string text;
    for (const Property& property : kProperties) {
        const std::string name = property.name;
        text += "  " + name + std::string(kEffectColumn - name.size(), ' ') + property.effect +
                " (" + valuesOf(property) + ")\n";
    }
    return text;
}

}  // namespace replay
