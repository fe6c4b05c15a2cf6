#include "replay/report/HtmlReport.h"

#include <string_view>

#include "replay/report/Html.h"
#include "replay/report/ReportData.h"
#include "replay/report/ReportPage.h"
#include "replay/report/ReportSummary.h"

namespace replay {

namespace {

// Writes the page up to the marker and leaves what follows it. What was put into the page is never
// searched for markers again.
std::string_view writeUpTo(std::ostream& out, std::string_view page, std::string_view marker) {
    const size_t at = page.find(marker);
    out << page.substr(0, at);
    return page.substr(at + marker.size());
}

}  // namespace

void writeHtmlReport(std::ostream& out, const std::vector<ReportRun>& runs) {
    std::string_view page = kReportPage;
    page = writeUpTo(out, page, "{{title}}");
    out << escapeHtml("Replay of " + (runs.empty() ? "nothing" : runs.front().findings->layer));
    page = writeUpTo(out, page, "{{summary}}");
    writeReportSummary(out, runs);
    page = writeUpTo(out, page, "{{data}}");
    writeReportData(out, runs);
    out << page;
}

}  // namespace replay
