#pragma once

// Runs side by side.

#include <nlohmann/json_fwd.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace replay {

// One run: its figures, or why there are none.
struct ComparedRun {
    std::string capture;
    std::string setting;
    std::vector<double> values;  // by figures(); empty after an error
    std::string error;
    bool modelled = false;
};

// From an object that toJson() made.
ComparedRun comparedRun(const nlohmann::json& run);

struct TableStyle {
    bool forTerminal = false;  // colours
};

// One capture under several settings, the first being what the others are compared with: figures
// in rows, the worst regressions first.
void writeComparison(std::ostream& out, const std::vector<ComparedRun>& runs, TableStyle style);

// Many captures: runs in rows. With several settings a capture, those with the worst regressions
// come first.
void writeOverview(std::ostream& out, const std::vector<ComparedRun>& runs,
                   size_t settingsPerCapture, TableStyle style);

}  // namespace replay
