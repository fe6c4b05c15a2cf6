#pragma once

#include <functional>
#include <string>

#include "replay/capture/ByteSource.h"

namespace replay {

// A file, or standard input for "-". Throws InputError with the name of the file.
class FileSource : public ByteSource {
  public:
    using Progress = std::function<void(uint64_t doneBytes, uint64_t totalBytes)>;

    FileSource(const std::string& path, Progress onProgress);
    ~FileSource() override;

    const std::string& name() const { return mName; }
    size_t read(char* buffer, size_t size) override;

  private:
    const std::string mName;
    const Progress mOnProgress;
    int mDescriptor = -1;
    uint64_t mTotalBytes = 0;  // 0 for pipes and the like
    uint64_t mDoneBytes = 0;
};

}  // namespace replay
