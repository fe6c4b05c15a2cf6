#include "replay/capture/FtraceWriter.h"

#include <cstdio>

#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr char kHead[] = "# tracer: nop\n#\n# A game of cindral-replay.\n#\n";

constexpr int64_t kNsPerUs = 1'000;
constexpr int64_t kUsPerSecond = 1'000'000;

const char* taskOf(CounterSample::Origin origin) {
    switch (origin) {
        case CounterSample::Origin::kProducer:
            return "   Binder:612_4-1893 ";
        case CounterSample::Origin::kCompositor:
            return " surfaceflinger-612  ";
        case CounterSample::Origin::kVsync:
            return "      TimerDispatch-700  ";
    }
    return "";
}

}  // namespace

void writeFtrace(std::ostream& out, const std::vector<CounterSample>& samples) {
    out << kHead << "#           TASK-PID     TGID   CPU#  ||||   TIMESTAMP  FUNCTION\n";
    for (const CounterSample& sample : samples) {
        char head[128];
        const int64_t timeUs = sample.timeNs / kNsPerUs;
        std::snprintf(head, sizeof(head),
                      "%s (  612) [002] .... %6lld.%06lld: tracing_mark_write: C|612|",
                      taskOf(sample.origin), static_cast<long long>(timeUs / kUsPerSecond),
                      static_cast<long long>(timeUs % kUsPerSecond));
        out << head << sample.name << '|' << sample.value << '\n';
    }
}

bool isWrittenFtrace(std::string_view firstBytes) {
    return startsWith(firstBytes, kHead);
}

}  // namespace replay
