#pragma once

// The report that people look at: one HTML file with everything in it.

#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "replay/findings/Findings.h"

namespace replay {

struct ReportRun {
    std::string label;  // what sets this run apart, for instance "vendor.perf.phr.enable=0"
    const Findings* findings = nullptr;
};

// One run or several of one capture, the first being what the others are compared with. Works
// without a network, in any browser; the figures at its top even without scripts.
void writeHtmlReport(std::ostream& out, const std::vector<ReportRun>& runs);

// Whether a file that begins so is a page of this program.
bool isReport(std::string_view firstBytes);

}  // namespace replay
