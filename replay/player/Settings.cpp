#include "replay/player/Settings.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/Error.h"

namespace replay {

namespace {

// Longer names resemble none.
constexpr size_t kMaxComparedChars = 91;

enum class Kind { kSwitch, kWholeNumber, kRealNumber, kTruth };

struct Property {
    const char* name;
    Kind kind;
    // Of the numbers. The library takes others too, but they mean no more than the nearest of these.
    double least = 0;
    double most = 0;
};

constexpr Property kProperties[] = {
        {"ro.vendor.perf.zgpe", Kind::kTruth},
        {"vendor.perf.cindral.debug", Kind::kSwitch},
        {"vendor.perf.pfar.enable", Kind::kSwitch},
        // The first checkpoint that is acted on; 4 is none.
        {"vendor.perf.pfar2.boost_level", Kind::kWholeNumber, 0, 4},
        {"vendor.perf.pfar2.disable_core_ctl", Kind::kSwitch},
        {"vendor.perf.pfar2.disable_pl", Kind::kSwitch},
        {"vendor.perf.pfar2.enable", Kind::kSwitch},
        {"vendor.perf.pfar2.hgpe.enable", Kind::kSwitch},
        // The strongest negative boost in percent, as a coefficient; 0 is the library's own.
        {"vendor.perf.pfar2.hgpe.max_neboost", Kind::kWholeNumber, -100, 0},
        // The highest threshold in percent of the period; 0 is the library's own.
        {"vendor.perf.pfar2.hgpe.max_rendertime", Kind::kWholeNumber, 0, 100},
        {"vendor.perf.phr.enable", Kind::kSwitch},
        // The smallest headroom as a share of the period.
        {"vendor.perf.phr.hr_min_rate", Kind::kRealNumber, 0, 1},
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

template <typename Number>
bool parses(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::string rangeOf(const Property& property) {
    char text[64];
    std::snprintf(text, sizeof(text), " from %g to %g", property.least, property.most);
    return text;
}

// What the value has to be; empty if it is.
std::string complaintAbout(const Property& property, const std::string& value) {
    const auto inRange = [&](double number) {
        return number >= property.least && number <= property.most;
    };
    int whole = 0;
    double real = 0;
    switch (property.kind) {
        case Kind::kSwitch:
            return value == "0" || value == "1" ? "" : "give 0 or 1";
        case Kind::kTruth:
            return value == "true" || value == "false" ? "" : "give true or false";
        case Kind::kWholeNumber:
            return parses(value, whole) && inRange(whole)
                           ? ""
                           : "give a whole number" + rangeOf(property);
        case Kind::kRealNumber:
            return parses(value, real) && inRange(real) ? "" : "give a number" + rangeOf(property);
    }
    return "";
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
    const std::string where = std::string("--set ") + property.name + "=" + inQuotes(value) + ": ";
    const std::string complaint = complaintAbout(property, value);
    if (!complaint.empty()) throw InputError(where + complaint);
    mProperties[property.name] = value;
}

}  // namespace replay
