#include "replay/capture/ZipReader.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

constexpr size_t kPieceBytes = 64 * 1024;
constexpr size_t kMaxNamedFiles = 4;
constexpr size_t kMaxMessageChars = 120;

bool isZip(std::string_view firstBytes) {
    return startsWith(firstBytes, "PK\x03\x04");
}

// Some of libarchive's messages have several lines, and some repeat bytes of the file.
std::string oneLine(const char* text) {
    std::string line = text != nullptr ? text : "unknown reason";
    std::replace_if(
            line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }, ' ');
    return line.substr(0, kMaxMessageChars);
}

// libarchive behind our way of reading and of reporting errors.
class Archive {
  public:
    Archive(ByteSource& zip, ReadContext& context)
          : mZip(zip), mContext(context), mPiece(kPieceBytes), mHandle(archive_read_new()) {
        if (mHandle == nullptr) throw std::bad_alloc();
        archive_read_support_format_zip_streamable(mHandle.get());
        archive_read_open(mHandle.get(), this, nullptr, readZip, nullptr);
        rethrow();
    }

    // Goes to the next file; false at the end, or where the zip is broken.
    bool next() {
        if (mIsBroken) return false;
        mBlock = {};
        const int result = archive_read_next_header(mHandle.get(), &mEntry);
        rethrow();
        if (result == ARCHIVE_OK || result == ARCHIVE_WARN) return true;
        if (result != ARCHIVE_EOF) noteBroken();
        return false;
    }

    std::string fileName() const {
        const char* name = archive_entry_pathname(mEntry);
        return inQuotes(name != nullptr ? name : "?");
    }

    // Of the present file. Block by block, because libarchive's own copying drops what it has when
    // it comes to a broken place.
    size_t read(char* buffer, size_t size) {
        if (mBlock.empty() && !mIsBroken) nextBlock();
        const size_t count = MemorySource(mBlock).read(buffer, size);
        mBlock.remove_prefix(count);
        return count;
    }

    // What next() or read() failed with; empty while all is well.
    const std::string& error() const { return mError; }

  private:
    struct Free {
        void operator()(archive* handle) const { archive_read_free(handle); }
    };

    // Called from within libarchive, which is C: no exception may pass.
    static la_ssize_t readZip(archive* handle, void* self, const void** bytes) {
        auto* reader = static_cast<Archive*>(self);
        try {
            *bytes = reader->mPiece.data();
            return static_cast<la_ssize_t>(
                    reader->mZip.read(reader->mPiece.data(), reader->mPiece.size()));
        } catch (...) {
            reader->mException = std::current_exception();
            archive_set_error(handle, EIO, "reading failed");
            return ARCHIVE_FATAL;
        }
    }

    void rethrow() {
        if (mException) std::rethrow_exception(std::exchange(mException, nullptr));
    }

    void nextBlock() {
        const void* bytes = nullptr;
        size_t size = 0;
        la_int64_t offset = 0;
        int result = ARCHIVE_OK;
        // Some blocks are empty although more follow.
        while (result == ARCHIVE_OK && size == 0)
            result = archive_read_data_block(mHandle.get(), &bytes, &size, &offset);
        rethrow();
        if (size > 0) mBlock = {static_cast<const char*>(bytes), size};
        mContext.budget.addUnpacked(size);
        if (result != ARCHIVE_OK && result != ARCHIVE_EOF) noteBroken();
    }

    void noteBroken() {
        mError = oneLine(archive_error_string(mHandle.get()));
        mIsBroken = true;
        mContext.losses.noteCutOff("unpacking ended early, " + mError);
    }

    ByteSource& mZip;
    ReadContext& mContext;
    std::vector<char> mPiece;
    std::unique_ptr<archive, Free> mHandle;
    std::exception_ptr mException;  // from within readZip
    archive_entry* mEntry = nullptr;
    std::string_view mBlock;  // what is left of libarchive's
    std::string mError;
    bool mIsBroken = false;
};

class FileInZip : public ByteSource {
  public:
    FileInZip(ByteSource& zip, ReadContext& context) : mArchive(zip, context), mContext(context) {
        std::string names;
        size_t count = 0;
        while (mArchive.next()) {
            mPlayed = mArchive.fileName();
            if (looksLikeCapture()) return;
            if (++count <= kMaxNamedFiles) names += (names.empty() ? "" : ", ") + mPlayed;
        }
        if (!mArchive.error().empty())
            throw InputError(context.name + ": cannot be unpacked: " + mArchive.error());
        if (count > kMaxNamedFiles) names += " and more";
        throw InputError(context.name + ": no capture in it; found " +
                         (names.empty() ? "no file" : names));
    }

    size_t read(char* buffer, size_t size) override {
        if (mHeadUsed < mHead.size()) {
            const size_t count =
                    MemorySource(std::string_view(mHead).substr(mHeadUsed)).read(buffer, size);
            mHeadUsed += count;
            return count;
        }
        if (mEnded) return 0;
        const size_t count = mArchive.read(buffer, size);
        if (count == 0) finish();
        return count;
    }

  private:
    bool looksLikeCapture() {
        mHead.resize(kFirstBytes);
        size_t have = 0;
        while (have < mHead.size()) {
            const size_t count = mArchive.read(mHead.data() + have, mHead.size() - have);
            if (count == 0) break;
            have += count;
        }
        mHead.resize(have);
        return formatOf(mHead) != nullptr;
    }

    void finish() {
        mEnded = true;
        while (mArchive.next()) {
            if (looksLikeCapture()) mContext.losses.noteUnread(mArchive.fileName(), mPlayed);
        }
        mHead.clear();
        mHeadUsed = 0;
    }

    Archive mArchive;
    ReadContext& mContext;
    std::string mPlayed;  // its name
    std::string mHead;    // of the present file
    size_t mHeadUsed = 0;
    bool mEnded = false;
};

}  // namespace

constexpr Format kZipFormat = {isZip, openZip};

std::unique_ptr<ByteSource> openZip(PeekedSource& zip, ReadContext& context) {
    return std::make_unique<FileInZip>(zip, context);
}

}  // namespace replay
