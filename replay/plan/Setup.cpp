#include "replay/plan/Setup.h"

#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int kMaxEffectPercent = 1000;

// Features by the names people have for them, and the properties that switch them.
struct SwitchedFeature {
    const char* name;
    std::vector<const char*> properties;
};

const std::vector<SwitchedFeature>& features() {
    static const std::vector<SwitchedFeature> all = {
            {"gfar", {"vendor.perf.pfar.enable", "vendor.perf.pfar2.enable"}},
            {"phr", {"vendor.perf.phr.enable"}},
            {"negative-boost", {"vendor.perf.pfar2.hgpe.enable"}},
    };
    return all;
}

std::vector<std::string> splitAtCommas(const std::string& text) {
    std::vector<std::string> parts;
    for (size_t start = 0; start <= text.size();) {
        const size_t comma = std::min(text.find(',', start), text.size());
        const std::string_view part = trimmed(std::string_view(text).substr(start, comma - start));
        if (!part.empty()) parts.emplace_back(part);
        start = comma + 1;
    }
    return parts;
}

[[noreturn]] void refuse(const std::string& change, const std::string& advice) {
    throw InputError("--compare: " + inQuotes(change) + ": " + advice);
}

int wholeNumber(const std::string& change, const std::string& value, int least, int most) {
    int number = 0;
    if (!toNumber(value, number) || number < least || number > most) {
        refuse(change,
               "give a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return number;
}

double rate(const std::string& change, const std::string& value) {
    double number = 0;
    if (!toNumber(value, number) || !std::isfinite(number)) refuse(change, "give a rate in Hz");
    return number;
}

bool switchFeature(Setup& setup, const std::string& change, const std::string& name,
                   const std::string& value) {
    for (const SwitchedFeature& feature : features()) {
        if (name != feature.name) continue;
        if (value != "on" && value != "off") refuse(change, "give on or off");
        for (const char* property : feature.properties) {
            setup.settings.set(std::string(property) + (value == "on" ? "=1" : "=0"));
        }
        return true;
    }
    return false;
}

ModelChoice& modelOf(Setup& setup) {
    if (!setup.model) setup.model.emplace();
    return *setup.model;
}

bool changeModel(Setup& setup, const std::string& change, const std::string& name,
                 const std::string& value) {
    if (name == "work") {
        modelOf(setup).work = parseWorkEstimator(value);
    } else if (name == "buffers") {
        modelOf(setup).buffers = wholeNumber(change, value, kMinBuffers, kMaxBuffers);
    } else if (name == "boost-speedup") {
        modelOf(setup).effects.boostSpeedupPercent =
                wholeNumber(change, value, 0, kMaxEffectPercent);
    } else if (name == "negative-slowdown") {
        modelOf(setup).effects.negativeSlowdownPercent =
                wholeNumber(change, value, 0, kMaxEffectPercent);
    } else {
        return false;
    }
    return true;
}

bool changeWord(Setup& setup, const std::string& change) {
    if (change == "none") {
        setup.withLibrary = false;
    } else if (change == "model") {
        modelOf(setup);
    } else if (change == "captured") {
        setup.model.reset();
    } else {
        return false;
    }
    return true;
}

void apply(Setup& setup, const std::string& change) {
    if (changeWord(setup, change)) return;
    const size_t equals = change.find('=');
    if (equals == std::string::npos) {
        refuse(change,
               "give PROPERTY=VALUE, gfar=off, phr=off, negative-boost=off, refresh=HZ, "
               "none, model, captured, work=NAME, buffers=N, boost-speedup=PERCENT or "
               "negative-slowdown=PERCENT");
    }
    const std::string name(trimmed(std::string_view(change).substr(0, equals)));
    const std::string value(trimmed(std::string_view(change).substr(equals + 1)));
    if (switchFeature(setup, change, name, value)) return;
    if (changeModel(setup, change, name, value)) return;
    if (name == "refresh") {
        setup.refreshHz = rate(change, value);
    } else {
        setup.settings.set(name + "=" + value);
    }
}

void addModel(std::vector<std::string>& options, const ModelChoice& model) {
    options.insert(options.end(), {"--model", "--work", model.work.name()});
    if (model.buffers) options.insert(options.end(), {"--buffers", std::to_string(*model.buffers)});
    options.insert(options.end(),
                   {"--boost-speedup", std::to_string(model.effects.boostSpeedupPercent),
                    "--negative-slowdown", std::to_string(model.effects.negativeSlowdownPercent)});
}

}  // namespace

Setup changedSetup(const Setup& base, const std::string& comparison) {
    Setup setup = base;
    std::string changes = comparison;
    // A space after the colon, because values may hold one.
    const size_t colon = comparison.find(": ");
    if (colon != std::string::npos) {
        setup.label = trimmed(std::string_view(comparison).substr(0, colon));
        changes = comparison.substr(colon + 1);
    } else {
        setup.label = trimmed(comparison);
    }
    const std::vector<std::string> list = splitAtCommas(changes);
    if (list.empty()) refuse(comparison, "no change; give for instance \"phr off: phr=off\"");
    for (const std::string& change : list) apply(setup, change);
    return setup;
}

std::vector<std::string> Setup::toOptions() const {
    std::vector<std::string> options;
    for (const auto& [name, value] : settings.properties()) {
        options.insert(options.end(), {"--set", name + "=" + value});
    }
    if (refreshHz) {
        options.insert(options.end(), {"--refresh", format("%.17g", *refreshHz)});
    }
    if (!withLibrary) options.emplace_back("--no-library");
    if (model) addModel(options, *model);
    if (cpuCostNs != 0) options.insert(options.end(), {"--cpu-cost", std::to_string(cpuCostNs)});
    return options;
}

}  // namespace replay
