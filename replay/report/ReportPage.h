#pragma once

namespace replay {

// The page with its charts, generated from page/. "{{title}}", "{{summary}}" and "{{data}}" stand
// once each, in this order, for what a report puts there.
extern const char kReportPage[];

}  // namespace replay
