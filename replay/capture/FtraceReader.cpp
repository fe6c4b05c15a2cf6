#include "replay/capture/FtraceReader.h"

#include <charconv>
#include <vector>

#include "replay/Error.h"

namespace replay {

namespace {

// The kernel's own limit for a marker is a page; anything far beyond that is some other kind of
// file.
constexpr size_t kMaxLineBytes = 64 * 1024;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int kDigitsOfNs = 9;
constexpr size_t kMaxSecondsDigits = 9;

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kDigits = "0123456789";

// A cursor over one line: each take... consumes what it names, or leaves the cursor where it was.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : mRest(text) {}

    std::string_view rest() const { return mRest; }

    void skipBlanks() { mRest.remove_prefix(lengthOf(kBlanks)); }

    bool take(char wanted) {
        if (mRest.empty() || mRest.front() != wanted) return false;
        mRest.remove_prefix(1);
        return true;
    }

    std::string_view takeDigits() { return takeBytes(lengthOf(kDigits)); }

    std::string_view takeWord() {
        const size_t end = mRest.find_first_of(kBlanks);
        return takeBytes(end == std::string_view::npos ? mRest.size() : end);
    }

  private:
    size_t lengthOf(std::string_view set) const {
        const size_t end = mRest.find_first_not_of(set);
        return end == std::string_view::npos ? mRest.size() : end;
    }

    std::string_view takeBytes(size_t count) {
        const std::string_view taken = mRest.substr(0, count);
        mRest.remove_prefix(count);
        return taken;
    }

    std::string_view mRest;
};

std::string_view trimRight(std::string_view text) {
    const size_t last = text.find_last_not_of(kBlanks);
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

std::string_view trimLeft(std::string_view text) {
    Scanner scanner(text);
    scanner.skipBlanks();
    return scanner.rest();
}

template <typename Number>
bool toNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

// "1646950.144658", with one to nine decimals.
bool takeTime(Scanner& scanner, int64_t& timeNs) {
    const std::string_view seconds = scanner.takeDigits();
    if (seconds.empty() || seconds.size() > kMaxSecondsDigits || !scanner.take('.')) return false;
    const std::string_view decimals = scanner.takeDigits();
    if (decimals.empty() || decimals.size() > kDigitsOfNs) return false;
    int64_t whole = 0;
    int64_t fraction = 0;
    if (!toNumber(seconds, whole) || !toNumber(decimals, fraction)) return false;
    for (size_t i = decimals.size(); i < kDigitsOfNs; ++i) fraction *= 10;
    timeNs = whole * kNsPerSecond + fraction;
    return true;
}

// Removes a trailing "(1234)", "( 1234)" or "(-----)"; false if there is something else in
// brackets.
bool dropTgid(std::string_view& head) {
    if (head.empty() || head.back() != ')') return true;
    const size_t open = head.find_last_of('(');
    if (open == std::string_view::npos) return false;
    const std::string_view tgid = head.substr(open + 1, head.size() - open - 2);
    if (tgid.empty() || tgid.find_first_not_of("-0123456789 ") != std::string_view::npos)
        return false;
    head = trimRight(head.substr(0, open));
    return true;
}

// "TASK-PID [(TGID)]"; the task's name may itself hold blanks, dashes and brackets.
bool parseHead(std::string_view head, FtraceLine& line) {
    head = trimRight(head);
    if (!dropTgid(head)) return false;
    const size_t dash = head.find_last_of('-');
    if (dash == std::string_view::npos || !toNumber(head.substr(dash + 1), line.pid)) return false;
    line.task = trimLeft(head.substr(0, dash));
    return line.pid >= 0 && !line.task.empty();
}

// "[CPU] FLAGS TIME: FUNCTION: PAYLOAD"; the oldest kernels have no flags.
bool parseTail(std::string_view tail, FtraceLine& line) {
    Scanner scanner(tail);
    if (!scanner.take('[') || scanner.takeDigits().empty() || !scanner.take(']')) return false;
    scanner.skipBlanks();
    Scanner withoutFlags = scanner;
    if (takeTime(withoutFlags, line.timeNs)) {
        scanner = withoutFlags;
    } else {
        scanner.takeWord();
        scanner.skipBlanks();
        if (!takeTime(scanner, line.timeNs)) return false;
    }
    if (!scanner.take(':')) return false;
    scanner.skipBlanks();
    const size_t colon = scanner.rest().find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    line.function = scanner.rest().substr(0, colon);
    line.payload = trimLeft(scanner.rest().substr(colon + 1));
    return true;
}

bool isUserspaceMarker(const FtraceLine& line) {
    return line.function == "tracing_mark_write" || line.function == "0";
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// What atrace itself prints around the trace.
bool isPreamble(std::string_view line) {
    return startsWith(line, "capturing trace...") || trimRight(line) == "TRACE:";
}

// "CPU:2 [LOST 5378 EVENTS]": the reader of the trace was too slow for the kernel's buffer.
bool isLossReport(std::string_view line, uint64_t& lostEvents) {
    Scanner scanner(trimLeft(line));
    if (!startsWith(scanner.rest(), "CPU:")) return false;
    const size_t open = line.find("[LOST ");
    if (open == std::string_view::npos) return false;
    Scanner count(line.substr(open + std::string_view("[LOST ").size()));
    uint64_t lost = 0;
    if (!toNumber(count.takeDigits(), lost) || !startsWith(count.rest(), " EVENTS]")) return false;
    lostEvents += lost;
    return true;
}

class Reading {
  public:
    Reading(std::istream& in, const std::string& fileName, const MarkerSink& sink)
          : mIn(in), mFileName(fileName), mSink(sink), mBuffer(kMaxLineBytes) {}

    FtraceLosses run() {
        while (nextLine()) useLine();
        if (mIn.bad()) throw InputError(mFileName + ": cannot be read; is it a file?");
        return mLosses;
    }

  private:
    bool nextLine() {
        mIn.getline(mBuffer.data(), static_cast<std::streamsize>(mBuffer.size()));
        ++mLineNumber;
        const auto count = static_cast<size_t>(mIn.gcount());
        if (mIn.fail() && !mIn.eof() && count + 1 >= mBuffer.size())
            fail("line too long for ftrace text");
        mComplete = !mIn.eof();
        if (mIn.bad() || (mIn.fail() && count == 0)) return false;
        mLine = std::string_view(mBuffer.data(), mComplete ? count - 1 : count);
        if (!mLine.empty() && mLine.back() == '\r') mLine.remove_suffix(1);
        return true;
    }

    void useLine() {
        const std::string_view text = trimLeft(mLine);
        if (text.empty() || text.front() == '#' || isPreamble(text)) return;
        const std::optional<FtraceLine> line = parseFtraceLine(mLine);
        if (line) return useMarker(*line);
        if (isLossReport(text, mLosses.lostEvents)) return;
        if (!mComplete && mSawEvent) {
            mLosses.lastLineCutOff = true;
            return;
        }
        fail("not an ftrace event (TASK-PID [CPU] FLAGS TIME: FUNCTION: PAYLOAD): " +
             inQuotes(std::string(mLine)) + "; give the text that atrace or trace_pipe prints");
    }

    void useMarker(const FtraceLine& line) {
        mSawEvent = true;
        if (!isUserspaceMarker(line)) return;
        try {
            mSink(Marker{line.timeNs, line.payload});
        } catch (const InputError& error) {
            fail(error.what());
        }
    }

    [[noreturn]] void fail(const std::string& what) const {
        throw InputError(mFileName + ":" + std::to_string(mLineNumber) + ": " + what);
    }

    std::istream& mIn;
    const std::string& mFileName;
    const MarkerSink& mSink;
    std::vector<char> mBuffer;
    std::string_view mLine;
    uint64_t mLineNumber = 0;
    bool mComplete = true;  // the line in hand ended with a line break
    bool mSawEvent = false;
    FtraceLosses mLosses;
};

}  // namespace

std::optional<FtraceLine> parseFtraceLine(std::string_view text) {
    // A task name may hold something like "[0]" too: the CPU is the first bracket that fits on both
    // sides.
    for (size_t open = text.find('['); open != std::string_view::npos;
         open = text.find('[', open + 1)) {
        FtraceLine line;
        if (parseTail(text.substr(open), line) && parseHead(text.substr(0, open), line))
            return line;
    }
    return std::nullopt;
}

FtraceLosses readFtrace(std::istream& in, const std::string& fileName, const MarkerSink& sink) {
    return Reading(in, fileName, sink).run();
}

}  // namespace replay
