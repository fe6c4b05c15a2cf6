#include "replay/report/HtmlReport.h"

#include <string_view>

#include "replay/base/Text.h"
#include "replay/report/Html.h"
#include "replay/report/ReportData.h"
#include "replay/report/ReportPage.h"
#include "replay/report/ReportSummary.h"

namespace replay {

namespace {

// Writes the page up to the marker and leaves what follows it.
std::string_view writeUpTo(std::ostream& out, std::string_view page, std::string_view marker) {
    const size_t at = page.find(marker);
    out << page.substr(0, at);
    return page.substr(at + marker.size());
}

}  // namespace

void writePage(std::ostream& out, std::string_view page, const std::string& title,
               const WritePart& summary, const WritePart& data) {
    page = writeUpTo(out, page, "{{title}}");
    out << escapeHtml(title);
    page = writeUpTo(out, page, "{{summary}}");
    summary(out);
    page = writeUpTo(out, page, "{{data}}");
    data(out);
    out << page;
}

void writeHtmlReport(std::ostream& out, const std::vector<ReportRun>& runs) {
    const std::string title =
            "Replay of " + (runs.empty() ? "nothing" : runs.front().findings->layer);
    writePage(
            out, kReportPage, title, [&](std::ostream& to) { writeReportSummary(to, runs); },
            [&](std::ostream& to) { writeReportData(to, runs); });
}

bool isReport(std::string_view firstBytes) {
    constexpr char kGenerator[] = "<meta name=\"generator\" content=\"cindral-replay\">";
    return startsWithIgnoringCase(firstBytes, "<!doctype html>") &&
           firstBytes.find(kGenerator) != std::string_view::npos;
}

}  // namespace replay
