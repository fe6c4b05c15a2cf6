#include "replay/capture/Progress.h"

#include <unistd.h>

#include <algorithm>

namespace replay {

namespace {

// Smaller files are read before a bar could be looked at.
constexpr uint64_t kMinBytes = 16 * 1024 * 1024;
constexpr int kBarChars = 30;
constexpr size_t kMaxNameChars = 32;
constexpr char kClearLine[] = "\r\033[K";

// The end of a path tells more than its beginning; it comes from outside and goes to a terminal.
std::string labelOf(const std::string& fileName) {
    const size_t slash = fileName.find_last_of('/');
    std::string name = slash == std::string::npos ? fileName : fileName.substr(slash + 1);
    if (name.size() > kMaxNameChars) name = "..." + name.substr(name.size() - kMaxNameChars + 3);
    std::replace_if(
            name.begin(), name.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return "reading " + name;
}

}  // namespace

Progress::Progress(int descriptor, const std::string& fileName)
      : mDescriptor(descriptor), mLabel(labelOf(fileName)), mIsTerminal(isatty(descriptor) == 1) {}

Progress::~Progress() {
    if (mShownPercent >= 0) write(kClearLine);
}

void Progress::show(uint64_t doneBytes, uint64_t totalBytes) {
    if (!mIsTerminal || totalBytes < kMinBytes) return;
    // A file may grow while it is read.
    const int percent = static_cast<int>(std::min(doneBytes, totalBytes) * 100 / totalBytes);
    if (percent == mShownPercent) return;
    mShownPercent = percent;
    const auto filled = static_cast<size_t>(percent * kBarChars / 100);
    const std::string number = std::to_string(percent);
    write("\r" + mLabel + " [" + std::string(filled, '#') + std::string(kBarChars - filled, '-') +
          "] " + std::string(3 - number.size(), ' ') + number + " %");
}

void Progress::write(const std::string& text) const {
    // A terminal that went away is no reason to stop reading.
    [[maybe_unused]] const ssize_t written = ::write(mDescriptor, text.data(), text.size());
}

}  // namespace replay
