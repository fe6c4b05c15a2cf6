#pragma once

#include <cstdint>
#include <string>

namespace replay {

// A bar on a terminal, where somebody looks; silent elsewhere. Leaves an empty line behind:
//   reading game.ftrace [##########----------]  51 %
// Used by one thread.
class Bar {
  public:
    // `descriptor` is where to draw, as a rule standard error.
    explicit Bar(int descriptor);
    ~Bar() { clear(); }
    Bar(const Bar&) = delete;
    Bar& operator=(const Bar&) = delete;

    // Draws only what has changed. What of the text is not printable becomes "?".
    void show(uint64_t done, uint64_t total, const std::string& text);
    void clear();

  private:
    void write(const std::string& text) const;

    const int mDescriptor;
    const bool mIsTerminal;
    std::string mShown;
};

// While a big file is read; small ones are read before a bar could be looked at.
class Progress {
  public:
    Progress(int descriptor, const std::string& fileName);

    void show(uint64_t doneBytes, uint64_t totalBytes);

  private:
    const std::string mLabel;
    Bar mBar;
};

}  // namespace replay
