#include "replay/capture/HtmlReader.h"

#include <algorithm>
#include <string>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/capture/FtraceReader.h"

namespace replay {

namespace {

constexpr size_t kPieceBytes = 64 * 1024;
// Longer start tags do not occur; the viewer's scripts hold things that look like the start of one.
constexpr size_t kMaxTagBytes = 512;
// Room for the longest thing that is recognised by its first bytes.
constexpr size_t kLookAheadBytes = 16;
// Line breaks and comment signs may stand between a string's quote and its trace.
constexpr size_t kLookBackBytes = 32;

constexpr std::string_view kScriptStart = "<script";
constexpr std::string_view kScriptEnd = "</script";
constexpr std::string_view kTraceClass = "trace-data";
constexpr std::string_view kTracer = "# tracer:";

size_t findScriptEnd(std::string_view text) {
    for (size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
        if (startsWithIgnoringCase(text.substr(at), kScriptEnd)) return at;
    }
    return std::string_view::npos;
}

// The quote that opens a string whose first characters, but for line breaks, follow `before`; 0 if
// there is none.
char openingQuote(std::string_view before) {
    for (;;) {
        while (!before.empty() &&
               std::string_view("\\\r\n").find(before.back()) != std::string_view::npos)
            before.remove_suffix(1);
        const bool isEscapedBreak = before.size() >= 2 && before.substr(before.size() - 2) == "\\n";
        if (!isEscapedBreak) break;
        before.remove_suffix(2);
    }
    const bool isQuote = !before.empty() && (before.back() == '"' || before.back() == '\'');
    return isQuote ? before.back() : '\0';
}

bool isPage(std::string_view bytes) {
    const size_t start = bytes.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return false;
    // Just any "<" would not do: ftrace text may begin with "<idle>-0".
    for (const char* opening : {"<!doctype", "<html", "<!--", "<head", "<script"}) {
        if (startsWithIgnoringCase(bytes.substr(start), opening)) return true;
    }
    return false;
}

class TraceOfPage : public ByteSource {
  public:
    TraceOfPage(ByteSource& page, ReadContext& context) : mPage(page), mContext(context) {}

    size_t read(char* buffer, size_t size) override {
        while (mReadyUsed == mReady.size() && mPlace != Place::kEnd) {
            mReady.clear();
            mReadyUsed = 0;
            step();
        }
        const size_t count = std::min(size, mReady.size() - mReadyUsed);
        std::copy_n(mReady.data() + mReadyUsed, count, buffer);
        mReadyUsed += count;
        return count;
    }

  private:
    enum class Place { kPage, kTrace, kOtherBlock, kString, kEnd };

    void step() {
        switch (mPlace) {
            case Place::kPage:
                return searchPage();
            case Place::kTrace:
            case Place::kOtherBlock:
                return passBlock();
            case Place::kString:
                return passString();
            case Place::kEnd:
                return;
        }
    }

    std::string_view window() const { return std::string_view(mWindow).substr(mUsed); }

    // Sees to it that at least `size` bytes are in the window, fewer only at the end of the page.
    void fill(size_t size) {
        if (window().size() >= size || mPageEnded) return;
        mWindow.erase(0, mUsed);
        mUsed = 0;
        size_t have = mWindow.size();
        mWindow.resize(have + kPieceBytes);
        while (have < size) {
            const size_t count = mPage.read(mWindow.data() + have, mWindow.size() - have);
            have += count;
            if (count == 0) break;
        }
        mPageEnded = have < size;
        mWindow.resize(have);
    }

    void searchPage() {
        fill(kPieceBytes);
        const std::string_view text = window();
        // What the window ends with may be the beginning of something.
        const size_t tail = mPageEnded ? 0 : kMaxTagBytes;
        const size_t end = text.size() - std::min(tail, text.size());
        for (size_t at = text.find_first_of("<#", mSearched); at < end;
             at = text.find_first_of("<#", at + 1)) {
            if (startsWithIgnoringCase(text.substr(at), kScriptStart) && enterBlock(at)) return;
            if (startsWithIgnoringCase(text.substr(at), kTracer) && enterString(at)) return;
        }
        if (mPageEnded) return endPage();
        const size_t keptFrom = end - std::min(end, kLookBackBytes);
        mUsed += keptFrom;
        mSearched = end - keptFrom;
    }

    bool enterBlock(size_t at) {
        const std::string_view tag = window().substr(at, kMaxTagBytes);
        const size_t close = tag.find('>');
        if (close == std::string_view::npos) return false;
        if (tag.substr(0, close).find(kTraceClass) == std::string_view::npos) return false;
        mUsed += at + close + 1;
        fill(kPieceBytes);
        const std::string_view beginning = window().substr(0, kPieceBytes);
        const bool isTrace = beginning.substr(0, findScriptEnd(beginning)).find(kTracer) !=
                             std::string_view::npos;
        enter(isTrace ? Place::kTrace : Place::kOtherBlock);
        return true;
    }

    bool enterString(size_t at) {
        const size_t from = at - std::min(at, kLookBackBytes);
        mQuote = openingQuote(window().substr(from, at - from));
        if (mQuote == '\0') return false;
        mUsed += at;
        enter(Place::kString);
        return true;
    }

    void enter(Place place) {
        mPlace = place;
        mFoundTrace |= place != Place::kOtherBlock;
    }

    void passBlock() {
        fill(kPieceBytes);
        const size_t end = findScriptEnd(window());
        const bool isEnd = end != std::string_view::npos;
        const size_t tail = mPageEnded ? 0 : kScriptEnd.size();
        const size_t count = isEnd ? end : window().size() - tail;
        if (mPlace == Place::kTrace) mReady.append(window().substr(0, count));
        mUsed += count;
        if (isEnd) {
            leave();
        } else if (mPageEnded) {
            endPageWithin();
        }
    }

    void passString() {
        fill(kPieceBytes);
        const size_t tail = mPageEnded ? 0 : kLookAheadBytes;
        while (window().size() > tail) {
            if (window().front() == mQuote) {
                ++mUsed;
                return leave();
            }
            const size_t plain = window().find_first_of("\\\"'");
            const size_t count = std::min(plain, window().size() - tail);
            if (count > 0) {
                mReady.append(window().substr(0, count));
                mUsed += count;
            } else if (window().front() == '\\') {
                unescape();
            } else {
                mReady += window().front();  // the other kind of quote
                ++mUsed;
            }
        }
        if (mPageEnded) endPageWithin();
    }

    // A backslash before a line break only says that the string goes on.
    void unescape() {
        const char escaped = window().size() > 1 ? window()[1] : '\n';
        const bool isWideBreak = escaped == '\r' && window().size() > 2 && window()[2] == '\n';
        mUsed += std::min(window().size(), isWideBreak ? size_t{3} : size_t{2});
        if (escaped == '\r' || escaped == '\n') return;
        if (escaped == 'n') {
            mReady += '\n';
        } else if (escaped == 't') {
            mReady += '\t';
        } else if (escaped != 'r') {
            mReady += escaped;
        }
    }

    void leave() {
        // The next trace begins with a line of its own.
        if (mPlace != Place::kOtherBlock) mReady += '\n';
        mPlace = Place::kPage;
        mSearched = 0;
    }

    void endPageWithin() {
        mContext.losses.noteCutOff("the page ends within its trace");
        mUsed = mWindow.size();
        endPage();
    }

    void endPage() {
        mPlace = Place::kEnd;
        if (mFoundTrace) return;
        throw InputError(mContext.name +
                         ": no trace in the page; looked for <script class=\"trace-data\"> with "
                         "\"# tracer:\" in it, and for a JavaScript string that begins with that");
    }

    ByteSource& mPage;
    ReadContext& mContext;
    std::string mWindow;   // a piece of the page
    size_t mUsed = 0;      // of the window
    size_t mSearched = 0;  // of what is left of it, while between traces
    bool mPageEnded = false;
    Place mPlace = Place::kPage;
    char mQuote = '\0';
    bool mFoundTrace = false;
    std::string mReady;  // text to hand out
    size_t mReadyUsed = 0;
};

}  // namespace

constexpr Format kPageFormat = {isPage, nullptr, readPage};

void readPage(ByteSource& page, ReadContext& context, const MarkerSink& sink) {
    TraceOfPage text(page, context);
    context.name += " (trace text)";  // whose lines have numbers of their own
    readFtrace(text, context, sink);
}

}  // namespace replay
