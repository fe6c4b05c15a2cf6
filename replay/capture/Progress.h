#pragma once

#include <cstdint>
#include <string>

namespace replay {

// A bar on a terminal while a big file is read; silent for small files and where nobody looks:
//   reading game.ftrace [##########----------]  51 %
// Leaves an empty line behind. Used by one thread.
class Progress {
  public:
    // `descriptor` is where to draw, as a rule standard error.
    Progress(int descriptor, const std::string& fileName);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(uint64_t doneBytes, uint64_t totalBytes);

  private:
    void write(const std::string& text) const;

    const int mDescriptor;
    const std::string mLabel;
    const bool mIsTerminal;
    int mShownPercent = -1;
};

}  // namespace replay
