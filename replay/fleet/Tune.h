#pragma once

// One setting for a fleet: searched on a part of the captures, checked by the others.

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "replay/fleet/Captures.h"
#include "replay/fleet/Objective.h"
#include "replay/fleet/Search.h"
#include "replay/plan/Input.h"
#include "replay/plan/Setup.h"

namespace replay {

struct TuneOptions {
    std::vector<FleetCapture> captures;
    Setup base;                     // played by the model, whether it asks for it or not
    InputChoice input;              // but for the capture, the same for all
    std::string rows;               // folder
    std::vector<std::string> over;  // see parseDimension
    // Levels, see Objective.
    std::vector<std::string> objective = {"repeated_vsyncs", "latency_p50_ms", "negative_s"};
    std::vector<std::string> limits;
    size_t budget = 200;  // runs of each capture that is chosen by
    unsigned jobs = 1;
};

// What a setting does to the objective (see Objective), with the bootstrap's interval of 95 %.
struct Effect {
    size_t captures = 0;
    double change = 0;
    double least = 0;
    double most = 0;
};

struct TriedSetting {
    Setup setup;
    Choice choice;        // of each property; empty: the base
    std::string options;  // that make it, see Row
    double change = 0;    // of the objective, on the captures to choose by
    double distance = 0;  // from the base: properties that differ, and by how much
    Values means;         // of the objective's figures
};

struct HarmedCapture {
    std::string name;
    double change = 0;
};

// From some worth of a boost on another setting would win.
struct Turn {
    int boostSpeedupPercent = 0;
    std::string setting;
    double change = 0;      // against the base, there
    double bestChange = 0;  // of the setting that is best as assumed
};

// Fewer captures to check by confirm nothing.
constexpr size_t kLeastUnseen = 5;

struct Tuned {
    std::string objective;
    std::vector<std::string> figures;  // the objective's
    // Best first, the base among them; of those that change the objective by the same, as far as it is
    // shown, the one closest to the base.
    std::vector<TriedSetting> tried;
    size_t base = 0;                    // in `tried`
    size_t ties = 0;                    // how many are as good as the best
    bool keepsBase = true;              // nothing is better, or not on captures it has not seen
    size_t choosing = 0;                // captures to choose by
    size_t left = 0;                    // captures that cannot be read or played
    Effect unseen;                      // of the best, on the captures to check by
    std::vector<HarmedCapture> harmed;  // by the best, of all captures, the worst first
    std::vector<Turn> turns;            // at most one below the assumed worth and one above
    int mostWorth = -1;                 // of a boost, that was looked at; below 0: none

    const TriedSetting& best() const { return tried.front(); }
    const TriedSetting& recommended() const { return keepsBase ? tried[base] : best(); }
};

// Throws InputError and OutputError.
Tuned tune(const TuneOptions& options);

// The answer, line by line, for people.
std::vector<std::string> answerOf(const Tuned& tuned);
void writeTuned(std::ostream& out, const Tuned& tuned);
// PROPERTY=VALUE lines, as a device's build takes them.
std::string propertiesText(const Tuned& tuned);
// Of the beginning of a file: whether that is what it holds.
bool isPropertyFile(std::string_view firstBytes);
// Throws OutputError.
void writeTunedPage(const std::string& path, const std::string& rows, const Tuned& tuned);

}  // namespace replay
