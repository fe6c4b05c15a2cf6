#include "replay/capture/FtraceReader.h"

#include <charconv>
#include <functional>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/capture/Capture.h"
#include "replay/capture/LineReader.h"

namespace replay {

namespace {

bool isUserspaceMarker(const FtraceLine& line) {
    return line.function == "tracing_mark_write" || line.function == "0";
}

// What atrace itself prints around the trace.
bool isPreamble(std::string_view line) {
    return startsWith(line, "capturing trace...") || line == "TRACE:";
}

// "CPU:2 [LOST 5378 EVENTS]": the reader of the trace was too slow for the kernel's buffer.
bool isLossReport(std::string_view line, Losses& losses) {
    constexpr std::string_view kOpening = "[LOST ";
    const size_t open = line.find(kOpening);
    if (!startsWith(line, "CPU:") || open == std::string_view::npos) return false;
    const std::string_view count = line.substr(open + kOpening.size());
    uint64_t lost = 0;
    const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), lost);
    const size_t digits = static_cast<size_t>(end - count.data());
    if (error != std::errc() || !startsWith(count.substr(digits), " EVENTS]")) return false;
    losses.noteDropped(lost);
    return true;
}

bool isText(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::string_view line = bytes.substr(0, bytes.find('\n'));
        if (startsWith(line, "# tracer:") || parseFtraceLine(line)) return true;
        bytes.remove_prefix(std::min(bytes.size(), line.size() + 1));
    }
    return false;
}

// A heading has a dozen; a page has others, but they are read by somebody else.
constexpr uint64_t kMaxLinesBeforeEvents = 1'000'000;

class Reading {
  public:
    Reading(ByteSource& text, ReadContext& context, const MarkerSink& sink)
          : mLines(text), mContext(context), mSink(sink) {}

    void run() {
        while (mLines.next(mLine)) {
            useLine();
            mContext.losses.requireMostlyGood(false);
        }
        mContext.losses.requireMostlyGood(true);
    }

  private:
    void useLine() {
        // Whoever stopped the capture did not wait for the end of the line. What there is of it may
        // parse and still be wrong: "C|612|VSYNC-sf|1" of a value of 12.
        if (!mLine.isComplete && mSawEvent)
            return mContext.losses.noteCutOff("the text ends within a line");
        refuseWhatNeverEnds();
        if (mLine.isTooLong) return noteDamage([] { return "line too long for ftrace text"; });
        const std::string_view text = trimmed(mLine.text);
        if (text.empty() || text.front() == '#' || isPreamble(text)) return;
        const std::optional<FtraceLine> line = parseFtraceLine(text);
        if (line) return useEvent(*line);
        if (isLossReport(text, mContext.losses)) return;
        noteDamage([this] {
            return "not an ftrace event (TASK-PID [CPU] FLAGS TIME: FUNCTION: PAYLOAD): " +
                   inQuotes(std::string(mLine.text));
        });
    }

    void refuseWhatNeverEnds() const {
        if (mLine.isEndless) throw InputError(place() + "no end of the line; give ftrace text");
        if (!mSawEvent && mLine.number > kMaxLinesBeforeEvents)
            throw InputError(place() + "no event so far; give ftrace text");
    }

    std::string place() const { return mContext.name + ":" + std::to_string(mLine.number) + ": "; }

    void useEvent(const FtraceLine& line) {
        try {
            if (isUserspaceMarker(line)) {
                const Marker marker{line.timeNs, line.payload, line.pid};
                mContext.scheduling.addMarker(marker);
                mSink(marker);
            } else {
                mContext.scheduling.addEvent(line);
            }
            mSawEvent = true;
            mContext.losses.noteGood();
        } catch (const DamagedMarker& error) {
            noteDamage([&error] { return error.what(); });
        }
    }

    void noteDamage(const std::function<std::string()>& what) {
        mContext.losses.noteDamage("line", [&] { return place() + what(); });
    }

    LineReader mLines;
    ReadContext& mContext;
    const MarkerSink& mSink;
    LineReader::Line mLine;
    bool mSawEvent = false;
};

}  // namespace

constexpr Format kFtraceFormat = {isText, nullptr, readFtrace};

void readFtrace(ByteSource& text, ReadContext& context, const MarkerSink& sink) {
    Reading(text, context, sink).run();
}

}  // namespace replay
