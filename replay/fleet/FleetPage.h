#pragma once

// The page of a fleet: one HTML file with everything in it, of the same make as the report of a run.

#include <string>
#include <vector>

#include "replay/fleet/Table.h"

namespace replay {

struct FleetPage {
    std::string title = "A fleet of captures";
    std::vector<std::string> answer;   // paragraphs at the top
    std::string base = "as given";     // label of the setting that the others are compared with
    std::vector<std::string> options;  // of the settings to show; empty: all
};

// Of a table that gatherRows filled. Throws InputError if it has no base, and OutputError.
void writeFleetPage(const std::string& path, const Table& table, const FleetPage& page);

}  // namespace replay
