#pragma once

#include <ostream>
#include <vector>

#include "replay/report/HtmlReport.h"

namespace replay {

// The head of the report, in words: what was replayed, how it went, and a table with a column a
// run.
void writeReportSummary(std::ostream& out, const std::vector<ReportRun>& runs);

}  // namespace replay
