#include <nlohmann/json.hpp>

#include "replay/base/Text.h"
#include "replay/report/TraceEvents.h"

namespace replay {

namespace {

using nlohmann::json;

std::string dump(const json& value) {
    return value.dump(-1, ' ', true, json::error_handler_t::replace);
}

// Trace event format. Threads that are none, for spans, have numbers like threads. Times are
// fractions of a us, written as decimal numbers: a double would lose the ns after 104 days.
class JsonWriter : public TraceWriter {
  public:
    explicit JsonWriter(std::ostream& out) : mOut(out) {
        mOut << "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[";
    }
    ~JsonWriter() override { mOut << "\n]}\n"; }

    void process(int process, const std::string& name) override {
        mProcess = process;
        metadata("process_name", process, name);
    }

    void track(const TraceTrack& track) override {
        if (track.kind != TraceTrack::Kind::kCounter) {
            metadata("thread_name", track.number, track.name);
        }
    }

    void event(const TraceEvent& event) override {
        begin();
        mOut << phase(event.kind) << ",\"pid\":" << mProcess << ",\"tid\":" << event.track
             << format(",\"ts\":%lld.%03d", static_cast<long long>(event.timeNs / 1000),
                       static_cast<int>(event.timeNs % 1000));
        if (event.kind != TraceEvent::Kind::kEnd) mOut << ",\"name\":" << dump(event.name);
        if (*event.category != '\0') mOut << ",\"cat\":" << dump(event.category);
        if (event.kind == TraceEvent::Kind::kCounter) {
            mOut << ",\"args\":" << dump({{"value", event.value}});
        } else if (!event.arguments.empty()) {
            mOut << ",\"args\":" << dump(argumentsOf(event));
        }
        mOut << '}';
    }

  private:
    void begin() {
        mOut << (mIsFirst ? "\n{" : ",\n{");
        mIsFirst = false;
    }

    static const char* phase(TraceEvent::Kind kind) {
        switch (kind) {
            case TraceEvent::Kind::kBegin:
                return "\"ph\":\"B\"";
            case TraceEvent::Kind::kEnd:
                return "\"ph\":\"E\"";
            case TraceEvent::Kind::kCounter:
                return "\"ph\":\"C\"";
            default:
                return "\"ph\":\"i\",\"s\":\"t\"";
        }
    }

    static json argumentsOf(const TraceEvent& event) {
        json arguments;
        for (const TraceArgument& argument : event.arguments) {
            std::visit([&](const auto& value) { arguments[argument.name] = value; },
                       argument.value);
        }
        return arguments;
    }

    void metadata(const char* what, int thread, const std::string& name) {
        begin();
        mOut << "\"ph\":\"M\",\"name\":\"" << what << "\",\"pid\":" << mProcess
             << ",\"tid\":" << thread << ",\"args\":" << dump({{"name", name}}) << '}';
    }

    std::ostream& mOut;
    bool mIsFirst = true;
    int mProcess = 0;
};

}  // namespace

void writeTraceJson(std::ostream& out, const std::vector<TraceRun>& runs) {
    JsonWriter writer(out);
    walkRuns(runs, writer);
}

}  // namespace replay
