#include "replay/capture/FileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "replay/base/Error.h"

namespace replay {

namespace {
constexpr char kStandardInput[] = "-";
}

FileSource::FileSource(const std::string& path, Progress onProgress)
      : mName(path == kStandardInput ? "standard input" : path),
        mOnProgress(std::move(onProgress)),
        mDescriptor(path == kStandardInput ? STDIN_FILENO
                                           : open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (mDescriptor < 0) throw InputError(mName + ": cannot be opened: " + std::strerror(errno));
    struct stat status = {};
    if (fstat(mDescriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        mTotalBytes = static_cast<uint64_t>(status.st_size);
    }
}

FileSource::~FileSource() {
    if (mDescriptor != STDIN_FILENO) close(mDescriptor);
}

size_t FileSource::read(char* buffer, size_t size) {
    ssize_t count = 0;
    do {
        count = ::read(mDescriptor, buffer, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) throw InputError(mName + ": cannot be read: " + std::strerror(errno));
    mDoneBytes += static_cast<uint64_t>(count);
    if (mOnProgress) mOnProgress(mDoneBytes, mTotalBytes);
    return static_cast<size_t>(count);
}

}  // namespace replay
