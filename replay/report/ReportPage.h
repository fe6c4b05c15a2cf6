#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <string_view>

namespace replay {

// The pages with their charts, of a run and of a fleet, generated from page/. "{{title}}",
// "{{summary}}" and "{{data}}" stand once each, in this order.
extern const char kReportPage[];
extern const char kFleetPage[];

// `page` with what the functions write there. What was put into the page is never searched for
// markers again.
using WritePart = std::function<void(std::ostream&)>;
void writePage(std::ostream& out, std::string_view page, const std::string& title,
               const WritePart& summary, const WritePart& data);

}  // namespace replay
