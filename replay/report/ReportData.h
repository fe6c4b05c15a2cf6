#pragma once

#include <ostream>
#include <vector>

#include "replay/report/HtmlReport.h"

namespace replay {

// The runs as page/data.js unpacks them.
void writeReportData(std::ostream& out, const std::vector<ReportRun>& runs);

}  // namespace replay
