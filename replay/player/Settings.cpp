#include "replay/player/Settings.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/Error.h"

namespace replay {

namespace {

constexpr size_t kMaxPropertyChars = 91;

enum class Kind { kWholeNumber, kRealNumber, kText };

struct Property {
    const char* name;
    Kind kind;
};

constexpr Property kProperties[] = {
        {"ro.vendor.perf.zgpe", Kind::kText},
        {"vendor.perf.cindral.debug", Kind::kWholeNumber},
        {"vendor.perf.pfar.enable", Kind::kWholeNumber},
        {"vendor.perf.pfar2.boost_level", Kind::kWholeNumber},
        {"vendor.perf.pfar2.disable_core_ctl", Kind::kWholeNumber},
        {"vendor.perf.pfar2.disable_pl", Kind::kWholeNumber},
        {"vendor.perf.pfar2.enable", Kind::kWholeNumber},
        {"vendor.perf.pfar2.hgpe.enable", Kind::kWholeNumber},
        {"vendor.perf.pfar2.hgpe.max_neboost", Kind::kWholeNumber},
        {"vendor.perf.pfar2.hgpe.max_rendertime", Kind::kWholeNumber},
        {"vendor.perf.phr.enable", Kind::kWholeNumber},
        {"vendor.perf.phr.hr_min_rate", Kind::kRealNumber},
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
    const std::string_view compared = std::string_view(name).substr(0, kMaxPropertyChars);
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

// What the value has to be; null if it is.
const char* complaintAbout(Kind kind, const std::string& value) {
    int whole = 0;
    double real = 0;
    switch (kind) {
        case Kind::kWholeNumber:
            return parses(value, whole) ? nullptr : "give a whole number";
        case Kind::kRealNumber:
            return parses(value, real) && std::isfinite(real) ? nullptr
                                                              : "give a number such as 0.5";
        case Kind::kText:
            return nullptr;
    }
    return nullptr;
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
    if (value.size() > kMaxPropertyChars) {
        throw InputError(where + "a property holds at most " + std::to_string(kMaxPropertyChars) +
                         " characters, this has " + std::to_string(value.size()));
    }
    if (const char* complaint = complaintAbout(property.kind, value))
        throw InputError(where + complaint);
    mProperties[property.name] = value;
}

}  // namespace replay
