#include "replay/capture/FtraceLine.h"

#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int kDigitsOfNs = 9;
constexpr size_t kMaxSecondsDigits = 9;
// Task names have 15 characters and the columns after them not many more. Without limits, a line
// made of brackets would be tried from each of them to its end.
constexpr size_t kMaxHeadChars = 256;
constexpr size_t kMaxFlagsChars = 16;

constexpr std::string_view kInterruptFlags = "hHs";

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A cursor over one line: each take... consumes what it names, or leaves the cursor where it was.
class Scanner {
  public:
    explicit Scanner(std::string_view text) : mRest(text) {}

    std::string_view rest() const { return mRest; }

    void skipBlanks() { takeWhile(isBlank); }

    bool take(char wanted) {
        if (mRest.empty() || mRest.front() != wanted) return false;
        mRest.remove_prefix(1);
        return true;
    }

    std::string_view takeDigits() { return takeWhile(isDigit); }

    std::string_view takeWord(size_t maxSize) {
        return takeWhile([](char c) { return !isBlank(c); }, maxSize);
    }

  private:
    template <typename Wanted>
    std::string_view takeWhile(Wanted wanted, size_t maxSize = std::string_view::npos) {
        const std::string_view start = mRest.substr(0, maxSize);
        size_t count = 0;
        while (count < start.size() && wanted(start[count])) ++count;
        mRest.remove_prefix(count);
        return start.substr(0, count);
    }

    std::string_view mRest;
};

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
    head = trimmed(head.substr(0, open));
    return true;
}

// "TASK-PID [(TGID)]"; the task's name may itself hold blanks, dashes and brackets.
bool parseHead(std::string_view head, FtraceLine& line) {
    head = trimmed(head);
    if (!dropTgid(head)) return false;
    const size_t dash = head.find_last_of('-');
    if (dash == std::string_view::npos || !toNumber(head.substr(dash + 1), line.pid)) return false;
    line.task = trimmed(head.substr(0, dash));
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
        const std::string_view flags = scanner.takeWord(kMaxFlagsChars);
        line.interrupt =
                flags.size() > 2 && kInterruptFlags.find(flags[2]) != std::string_view::npos;
        scanner.skipBlanks();
        if (!takeTime(scanner, line.timeNs)) return false;
    }
    if (!scanner.take(':')) return false;
    scanner.skipBlanks();
    const size_t colon = scanner.rest().find(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    line.function = scanner.rest().substr(0, colon);
    line.payload = trimmed(scanner.rest().substr(colon + 1));
    return true;
}

}  // namespace

std::optional<FtraceLine> parseFtraceLine(std::string_view text) {
    // A task name may hold something like "[0]" too: the CPU is the first bracket that fits on both
    // sides.
    const std::string_view start = text.substr(0, kMaxHeadChars);
    for (size_t open = start.find('['); open != std::string_view::npos;
         open = start.find('[', open + 1)) {
        FtraceLine line;
        if (parseTail(text.substr(open), line) && parseHead(text.substr(0, open), line))
            return line;
    }
    return std::nullopt;
}

}  // namespace replay
