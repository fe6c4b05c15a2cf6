#include "replay/capture/PerfettoReader.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/wire_format_lite.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <memory>
#include <string>

#include "PerfettoTrace.pb.h"
#include "replay/base/Error.h"
#include "replay/capture/Capture.h"
#include "replay/capture/Inflate.h"
#include "replay/capture/PerfettoScheduling.h"
#include "replay/capture/PerfettoTimeline.h"

namespace replay {

namespace {

using google::protobuf::io::CodedInputStream;
using google::protobuf::io::CopyingInputStreamAdaptor;
using WireFormat = google::protobuf::internal::WireFormatLite;

constexpr int kPacketField = 1;
constexpr uint32_t kPacketTag = (kPacketField << 3) | WireFormat::WIRETYPE_LENGTH_DELIMITED;
// A device's bundles have some hundred kilobytes. Longer packets hold other things, such as dumps
// of a heap.
constexpr uint32_t kMaxPacketBytes = 32 * 1024 * 1024;
constexpr int kPieceBytes = 256 * 1024;
// Far more than any device is up, and far from overflow.
constexpr uint64_t kMaxTimestampNs = 1'000'000'000'000'000'000;

// Every packet begins with this: field 1, length-delimited.
constexpr char kFirstByte = static_cast<char>(kPacketTag);

// The tag is also a line break, with which a text may begin; but text has no control characters.
bool isPerfetto(std::string_view bytes) {
    if (bytes.empty() || bytes.front() != kFirstByte) return false;
    return std::any_of(bytes.begin(), bytes.end(), [](char c) {
        return std::iscntrl(static_cast<unsigned char>(c)) &&
               std::string_view("\t\n\r\x1b").find(c) == std::string_view::npos;
    });
}

class SourceStream : public google::protobuf::io::CopyingInputStream {
  public:
    explicit SourceStream(ByteSource& source) : mSource(source) {}

    int Read(void* buffer, int size) override {
        return static_cast<int>(
                mSource.read(static_cast<char*>(buffer), static_cast<size_t>(size)));
    }

  private:
    ByteSource& mSource;
};

// Takes packets off a stream of "Trace.packet" fields.
class PacketStream {
  public:
    enum class Next { kPacket, kTooLong, kEnd, kBroken };

    explicit PacketStream(ByteSource& source) : mSource(source), mStream(&mSource, kPieceBytes) {}

    Next next(std::string& packet) {
        // A new one for each packet, because one counts no further than INT_MAX bytes.
        CodedInputStream input(&mStream);
        uint32_t tag = 0;
        while ((tag = input.ReadTag()) != kPacketTag) {
            if (tag == 0 && input.ConsumedEntireMessage()) return Next::kEnd;
            if (!WireFormat::SkipField(&input, tag)) return Next::kBroken;
        }
        uint32_t size = 0;
        if (!input.ReadVarint32(&size)) return Next::kBroken;
        if (size > kMaxPacketBytes) {
            const bool skipped = size <= INT_MAX && input.Skip(static_cast<int>(size));
            return skipped ? Next::kTooLong : Next::kBroken;
        }
        return input.ReadString(&packet, static_cast<int>(size)) ? Next::kPacket : Next::kBroken;
    }

    int64_t position() const { return mStream.ByteCount(); }

  private:
    SourceStream mSource;
    CopyingInputStreamAdaptor mStream;
};

class Reading {
  public:
    Reading(ReadContext& context, const MarkerSink& sink) : mContext(context), mSink(sink) {}

    void run(ByteSource& trace) {
        PacketStream packets(trace);
        std::string bytes;
        for (;;) {
            const int64_t position = packets.position();
            mPlace = mContext.name + ": packet at byte " + std::to_string(position);
            switch (packets.next(bytes)) {
                case PacketStream::Next::kEnd:
                    return mContext.losses.requireMostlyGood(true);
                case PacketStream::Next::kBroken:
                    return endAt(position);
                case PacketStream::Next::kTooLong:
                    noteDamage("longer than " + std::to_string(kMaxPacketBytes) + " bytes");
                    break;
                case PacketStream::Next::kPacket:
                    usePacket(bytes);
                    break;
            }
            mContext.losses.requireMostlyGood(false);
        }
    }

  private:
    // Whoever stopped the capture, or its transfer, did not wait for the end of a packet.
    void endAt(int64_t position) {
        if (!mSawPacket) {
            throw InputError(mContext.name +
                             ": not a Perfetto trace, or cut off within its first packet");
        }
        mContext.losses.noteCutOff("no whole packet from byte " + std::to_string(position) + " on");
        mContext.losses.requireMostlyGood(true);
    }

    void usePacket(const std::string& bytes) {
        mDamage.clear();
        if (!mPacket.ParsePartialFromString(bytes)) return noteDamage("cannot be parsed");
        mSawPacket = true;
        useContents(mPacket);
        if (mPacket.has_compressed_packets()) {
            MemorySource packed(mPacket.compressed_packets());
            usePacked(*openZlib(packed, mContext.budget));
        }
        if (mPacket.has_zstd_compressed_packets()) {
            MemorySource packed(mPacket.zstd_compressed_packets());
            usePacked(*openZstd(packed, mContext.budget));
        }
        if (!mDamage.empty()) return noteDamage(mDamage);
        mContext.losses.noteGood();
    }

    // What can be unpacked is used, and the outer packet counts as damaged if that is not all.
    void usePacked(InflateSource& unpacked) {
        PacketStream packets(unpacked);
        std::string bytes;
        PacketStream::Next next = packets.next(bytes);
        for (; next == PacketStream::Next::kPacket; next = packets.next(bytes)) {
            if (!mInner.ParsePartialFromString(bytes)) {
                mDamage = "a packet packed in it cannot be parsed";
            } else if (mInner.has_compressed_packets() || mInner.has_zstd_compressed_packets()) {
                mDamage = "packed twice, which no tracing service does";
            } else {
                useContents(mInner);
            }
        }
        if (next != PacketStream::Next::kEnd) mDamage = "the packets packed in it are not whole";
        if (!unpacked.error().empty()) mDamage = "cannot be unpacked: " + unpacked.error();
    }

    void useContents(const perfetto::TracePacket& packet) {
        useEvents(packet.ftrace_events());
        try {
            mTimeline.use(packet, mContext.timeline, mSink);
        } catch (const DamagedMarker& error) {
            mDamage = error.what();
        }
    }

    void useEvents(const perfetto::FtraceEventBundle& bundle) {
        if (bundle.lost_events()) mContext.losses.noteDropped(0);
        for (const perfetto::FtraceEvent& event : bundle.event()) {
            if (event.has_print()) useMarker(event);
        }
        mScheduling.use(bundle, mContext.scheduling);
    }

    void useMarker(const perfetto::FtraceEvent& event) {
        std::string_view payload = event.print().buf();
        if (!payload.empty() && payload.back() == '\n') payload.remove_suffix(1);
        try {
            if (event.timestamp() > kMaxTimestampNs)
                throw DamagedMarker("a timestamp beyond any clock");
            const Marker marker{static_cast<int64_t>(event.timestamp()), payload,
                                static_cast<int>(event.pid())};
            mContext.scheduling.addMarker(marker);
            mSink(marker);
        } catch (const DamagedMarker& error) {
            mDamage = error.what();
        }
    }

    void noteDamage(const std::string& what) {
        mContext.losses.noteDamage("packet", [&] { return mPlace + ": " + what; });
    }

    ReadContext& mContext;
    const MarkerSink& mSink;
    PerfettoScheduling mScheduling;
    PerfettoTimeline mTimeline;
    std::string mPlace;             // of the packet in hand, for messages
    std::string mDamage;            // what is wrong with it
    perfetto::TracePacket mPacket;  // kept, because their memory is used again
    perfetto::TracePacket mInner;
    bool mSawPacket = false;
};

}  // namespace

constexpr Format kPerfettoFormat = {isPerfetto, nullptr, readPerfetto, true};

void readPerfetto(ByteSource& trace, ReadContext& context, const MarkerSink& sink) {
    Reading(context, sink).run(trace);
}

}  // namespace replay
