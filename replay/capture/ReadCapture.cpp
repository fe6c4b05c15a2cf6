#include "replay/capture/ReadCapture.h"

#include <memory>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/FileSource.h"
#include "replay/capture/Format.h"
#include "replay/capture/FtraceReader.h"

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

// From the file's bytes to the trace in it, one stage behind the other.
class Pipeline {
  public:
    Pipeline(ByteSource& file, ReadContext& context)
          : mContext(context), mFile(file, context.budget) {
        look(mFile);
        while (mFormat->unpack != nullptr) unpackOnce();
    }

    void readInto(CaptureBuilder& builder) {
        if (mFormat->hasCpusInTurn) builder.expectCpusInTurn();
        mFormat->read(*mBytes, mContext, [&](const Marker& marker) { builder.addMarker(marker); });
    }

  private:
    void unpackOnce() {
        if (mStages.size() >= kMaxPackings) {
            throw InputError(mContext.name + ": packed more than " + std::to_string(kMaxPackings) +
                             " times over; unpack it by hand");
        }
        mStages.push_back(mFormat->unpack(*mBytes, mContext));
        look(*mStages.back());
    }

    void look(ByteSource& bytes) {
        mPeeked.push_back(std::make_unique<PeekedSource>(bytes));
        mBytes = mPeeked.back().get();
        if (mBytes->peek(kByteOrderMark.size()) == kByteOrderMark)
            mBytes->skip(kByteOrderMark.size());
        const Format* const format = formatOf(mBytes->peek(kFirstBytes));
        // Of a file that looks like nothing, the first line is the best thing to complain of.
        mFormat = format != nullptr ? format : &kFtraceFormat;
    }

    ReadContext& mContext;
    PackedBytes mFile;
    std::vector<std::unique_ptr<ByteSource>> mStages;
    std::vector<std::unique_ptr<PeekedSource>> mPeeked;  // one behind the file and each stage
    PeekedSource* mBytes = nullptr;                      // the last of them
    const Format* mFormat = nullptr;
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
        capture.timeline = context.timeline.build(capture.originNs);
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
