#pragma once

// What a performance engineer asks of a run: what was sent, what it cost, how the frames did.

#include <ostream>
#include <string>
#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

// One line, ready to print.
struct SummaryRow {
    std::string label;  // empty: the line goes on with what the row above is about
    std::string value;
    bool isSection = false;  // it begins a section that is called `value`
};

std::vector<SummaryRow> summarize(const Findings& findings);

// `forTerminal`: with the sections emphasised.
void writeSummary(std::ostream& out, const std::vector<SummaryRow>& rows, bool forTerminal);

}  // namespace replay
