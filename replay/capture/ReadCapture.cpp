#include "replay/capture/ReadCapture.h"

#include <memory>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/FileKind.h"
#include "replay/capture/FileSource.h"
#include "replay/capture/FtraceReader.h"
#include "replay/capture/HtmlReader.h"
#include "replay/capture/Inflate.h"
#include "replay/capture/PerfettoReader.h"
#include "replay/capture/ZipReader.h"

namespace replay {

namespace {

// A gzip in a zip is as deep as it gets.
constexpr size_t kMaxPackings = 3;
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

// Counts what is read of the file itself, so that unpacking can be held against it.
class PackedBytes : public ByteSource {
  public:
    PackedBytes(ByteSource& inner, UnpackBudget& budget) : mInner(inner), mBudget(budget) {}

    size_t read(char* buffer, size_t size) override {
        const size_t count = mInner.read(buffer, size);
        mBudget.addPacked(count);
        return count;
    }

  private:
    ByteSource& mInner;
    UnpackBudget& mBudget;
};

bool isPacked(FileKind kind) {
    return kind == FileKind::kGzip || kind == FileKind::kZstd || kind == FileKind::kZip ||
           kind == FileKind::kPackedAtrace;
}

// From the file's bytes to the trace in it, one stage behind the other.
class Pipeline {
  public:
    Pipeline(ByteSource& file, ReadContext& context)
          : mContext(context), mFile(file, context.budget) {
        look(mFile);
        while (isPacked(mKind)) unpackOnce();
    }

    void readInto(CaptureBuilder& builder) {
        const auto sink = [&](const Marker& marker) { builder.addMarker(marker); };
        if (mKind == FileKind::kPerfetto) {
            builder.expectCpusInTurn();
            readPerfetto(*mBytes, mContext, sink);
        } else if (mKind == FileKind::kPage) {
            const std::unique_ptr<ByteSource> text = openPage(*mBytes, mContext);
            mContext.name += " (trace text)";  // whose lines have numbers of their own
            readFtrace(*text, mContext, sink);
        } else {
            // Of a file that looks like nothing, the first line is the best thing to complain of.
            readFtrace(*mBytes, mContext, sink);
        }
    }

  private:
    // Notes where a stream breaks off, and refuses one of which nothing comes out.
    class Inflated : public ByteSource {
      public:
        Inflated(std::unique_ptr<InflateSource> inner, ReadContext& context)
              : mInner(std::move(inner)), mContext(context) {}

        size_t read(char* buffer, size_t size) override {
            const size_t count = mInner->read(buffer, size);
            mIsEmpty = mIsEmpty && count == 0;
            if (count > 0 || mInner->error().empty()) return count;
            if (mIsEmpty)
                throw InputError(mContext.name + ": cannot be unpacked: " + mInner->error());
            mContext.losses.noteCutOff("unpacking ended early, " + mInner->error());
            return 0;
        }

      private:
        std::unique_ptr<InflateSource> mInner;
        ReadContext& mContext;
        bool mIsEmpty = true;
    };

    void unpackOnce() {
        if (mStages.size() >= kMaxPackings) {
            throw InputError(mContext.name + ": packed more than " + std::to_string(kMaxPackings) +
                             " times over; unpack it by hand");
        }
        if (mKind == FileKind::kPackedAtrace)
            mBytes->skip(packedAtraceStart(mBytes->peek(kFileKindBytes)));
        mStages.push_back(unpacked());
        look(*mStages.back());
    }

    std::unique_ptr<ByteSource> unpacked() {
        if (mKind == FileKind::kZip) return openZip(*mBytes, mContext);
        return std::make_unique<Inflated>(mKind == FileKind::kZstd
                                                  ? openZstd(*mBytes, mContext.budget)
                                                  : openZlib(*mBytes, mContext.budget),
                                          mContext);
    }

    void look(ByteSource& bytes) {
        mPeeked.push_back(std::make_unique<PeekedSource>(bytes));
        mBytes = mPeeked.back().get();
        if (mBytes->peek(kByteOrderMark.size()) == kByteOrderMark)
            mBytes->skip(kByteOrderMark.size());
        mKind = fileKindOf(mBytes->peek(kFileKindBytes));
    }

    ReadContext& mContext;
    PackedBytes mFile;
    std::vector<std::unique_ptr<ByteSource>> mStages;
    std::vector<std::unique_ptr<PeekedSource>> mPeeked;  // one behind the file and each stage
    PeekedSource* mBytes = nullptr;                      // the last of them
    FileKind mKind = FileKind::kOther;
};

// Of two explanations the user needs both: no counters were found, and half of the file is missing.
[[noreturn]] void failWithLosses(const InputError& error, const Losses& losses) {
    const std::string lost = losses.describe();
    throw InputError(error.what() + (lost.empty() ? "" : "; besides: " + lost));
}

}  // namespace

Capture readCapture(ByteSource& bytes, const std::string& name) {
    ReadContext context(name);
    CaptureBuilder builder;
    Pipeline(bytes, context).readInto(builder);
    try {
        Capture capture = builder.build(name);
        capture.lost = context.losses.describe();
        capture.scheduling = context.scheduling.build(capture.originNs);
        return capture;
    } catch (const InputError& error) {
        failWithLosses(error, context.losses);
    }
}

Capture readCapture(const std::string& path, const ReadOptions& options) {
    FileSource file(path, options.onProgress);
    return readCapture(file, file.name());
}

}  // namespace replay
