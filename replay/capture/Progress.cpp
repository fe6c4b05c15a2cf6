#include "replay/capture/Progress.h"

#include <unistd.h>

#include <algorithm>

namespace replay {

namespace {

// Smaller files are read before a bar could be looked at.
constexpr uint64_t kMinBytes = 16 * 1024 * 1024;
constexpr size_t kBarChars = 30;
constexpr size_t kMaxNameChars = 32;
constexpr char kClearLine[] = "\r\033[K";

// The end of a path tells more than its beginning.
std::string labelOf(const std::string& fileName) {
    const size_t slash = fileName.find_last_of('/');
    std::string name = slash == std::string::npos ? fileName : fileName.substr(slash + 1);
    if (name.size() > kMaxNameChars) name = "..." + name.substr(name.size() - kMaxNameChars + 3);
    return "reading " + name;
}

}  // namespace

Bar::Bar(int descriptor) : mDescriptor(descriptor), mIsTerminal(isatty(descriptor) == 1) {}

void Bar::show(uint64_t done, uint64_t total, const std::string& text) {
    if (!mIsTerminal || total == 0) return;
    // A file may grow while it is read.
    const uint64_t percent = std::min(done, total) * 100 / total;
    const auto filled = static_cast<size_t>(percent * kBarChars / 100);
    const std::string number = std::to_string(percent);
    std::string line = text + " [" + std::string(filled, '#') +
                       std::string(kBarChars - filled, '-') + "] " +
                       std::string(3 - number.size(), ' ') + number + " %";
    // Names come from outside, and this goes to a terminal.
    std::replace_if(
            line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    if (line == mShown) return;
    write((line.size() < mShown.size() ? kClearLine : "\r") + line);
    mShown = line;
}

void Bar::clear() {
    if (!mShown.empty()) write(kClearLine);
    mShown.clear();
}

void Bar::write(const std::string& text) const {
    // A terminal that went away is no reason to stop.
    [[maybe_unused]] const ssize_t written = ::write(mDescriptor, text.data(), text.size());
}

Progress::Progress(int descriptor, const std::string& fileName)
      : mLabel(labelOf(fileName)), mBar(descriptor) {}

void Progress::show(uint64_t doneBytes, uint64_t totalBytes) {
    if (totalBytes >= kMinBytes) mBar.show(doneBytes, totalBytes, mLabel);
}

}  // namespace replay
