#include "tests/replay/CaptureFormats.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>
#include <zstd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>

namespace replay {

namespace {

std::string replaced(std::string text, const std::string& what, const std::string& with) {
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
        text.replace(at, what.size(), with);
    }
    return text;
}

std::string varint(uint64_t value) {
    std::string bytes;
    for (; value >= 0x80; value >>= 7) bytes += static_cast<char>((value & 0x7f) | 0x80);
    return bytes + static_cast<char>(value);
}

std::string numberField(int field, uint64_t value) {
    return varint(static_cast<uint64_t>(field) << 3) + varint(value);
}

std::string bytesField(int field, const std::string& bytes) {
    return varint((static_cast<uint64_t>(field) << 3) | 2) + varint(bytes.size()) + bytes;
}

std::string packet(const std::string& fields) {
    return bytesField(1, numberField(8, 12345) + fields);
}

// A line that ftrace wrote.
struct TextEvent {
    int thread = 0;
    int cpu = 0;
    bool interrupt = false;
    uint64_t timeNs = 0;
    std::string function;
    std::string payload;

    bool read(const std::string& line) {
        char flags[8] = "";
        char name[32] = "";
        unsigned long long seconds = 0;
        unsigned long long micros = 0;
        int end = 0;
        std::sscanf(line.c_str(), "%*[^-]-%d%*[^[][%d] %7s %llu.%llu: %31[^:]: %n", &thread, &cpu,
                    flags, &seconds, &micros, name, &end);
        interrupt = flags[2] == 'h';
        timeNs = seconds * 1'000'000'000 + micros * 1'000;
        function = name;
        payload = line.substr(static_cast<size_t>(end));
        return end > 0;
    }

    // What comes behind "name=".
    std::string text(const char* name) const {
        const size_t begin = payload.find(name) + std::strlen(name);
        return payload.substr(begin, payload.find(' ', begin) - begin);
    }
    uint64_t number(const char* name) const { return std::stoull(text(name)); }
    // As the kernel counts: 0x100 marks a preemption.
    uint64_t state() const {
        const std::string letters = text("prev_state=");
        return letters == "R" ? 0 : letters == "R+" ? 0x100 : 1;
    }
};

// What one processor saw for a while: single events, or switches and wakings in columns.
class Bundle {
  public:
    void add(const TextEvent& event, bool compact) {
        if (compact && event.function == "sched_switch") {
            mSwitchTimes += varint(event.timeNs - mLastSwitchNs);
            mLastSwitchNs = event.timeNs;
            mStates += varint(event.state());
            mNextThreads += varint(event.number("next_pid="));
            mNames += bytesField(5, event.text("next_comm="));
            mNameIndices += varint(mNameCount++);
        } else if (compact && event.function == "sched_wakeup") {
            mWakeTimes += varint(event.timeNs - mLastWakeNs);
            mLastWakeNs = event.timeNs;
            mWoken += varint(event.number(" pid="));
            mWakeFlags += varint(event.interrupt ? 8 : 0);
        } else {
            const std::string head = numberField(1, event.timeNs) +
                                     numberField(2, static_cast<uint64_t>(event.thread));
            mEvents += bytesField(2, head + single(event));
        }
    }

    std::string fields() const {
        if (mNames.empty() && mWoken.empty()) return mEvents;
        return mEvents +
               bytesField(4, bytesField(1, mSwitchTimes) + bytesField(2, mStates) +
                                     bytesField(3, mNextThreads) + mNames +
                                     bytesField(6, mNameIndices) + bytesField(7, mWakeTimes) +
                                     bytesField(8, mWoken) + bytesField(12, mWakeFlags));
    }

  private:
    static std::string single(const TextEvent& event) {
        if (event.function == "sched_switch")
            return bytesField(4, bytesField(1, event.text("prev_comm=")) +
                                         numberField(2, event.number("prev_pid=")) +
                                         numberField(4, event.state()) +
                                         bytesField(5, event.text("next_comm=")) +
                                         numberField(6, event.number("next_pid=")));
        if (event.function == "sched_wakeup")
            return bytesField(
                    17, bytesField(1, event.text("comm=")) + numberField(2, event.number(" pid=")));
        if (event.function == "binder_transaction" ||
            event.function == "binder_transaction_received")
            return bytesField(event.function == "binder_transaction" ? 50 : 51,
                              numberField(1, event.number("transaction=")));
        return bytesField(3, numberField(1, 77) + bytesField(2, event.payload + "\n"));
    }

    std::string mEvents, mSwitchTimes, mStates, mNextThreads, mNames, mNameIndices;
    std::string mWakeTimes, mWoken, mWakeFlags;
    uint64_t mLastSwitchNs = 0;
    uint64_t mLastWakeNs = 0;
    uint64_t mNameCount = 0;
};

std::string zlibOf(const std::string& bytes) {
    uLongf size = compressBound(bytes.size());
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef*>(packed.data()), &size,
             reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    packed.resize(size);
    return packed;
}

std::string packedPackets(const std::string& packets, PacketPacking packing) {
    if (packing == PacketPacking::kNone) return packets;
    if (packing == PacketPacking::kZlib) return packet(bytesField(50, zlibOf(packets)));
    return packet(bytesField(133, zstdOf(packets)));
}

std::string utf16Of(const std::string& ascii, bool bigEndian) {
    std::string wide = bigEndian ? "\xfe\xff" : "\xff\xfe";
    for (const char c : ascii) wide += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
    return wide;
}

la_ssize_t append(archive*, void* packed, const void* bytes, size_t size) {
    static_cast<std::string*>(packed)->append(static_cast<const char*>(bytes), size);
    return static_cast<la_ssize_t>(size);
}

}  // namespace

Samples gameSamples(int64_t vsyncs) {
    using Origin = CounterSample::Origin;
    constexpr char kLayer[] = "BufferTX - SurfaceView[com.example.game/.Main](BLAST)#7";
    Samples samples;
    for (int64_t i = 0; i < vsyncs; ++i) {
        const int64_t timeNs = 100'000'000'000 + i * 16'667'000;
        if (i % 90 > 80) continue;
        samples.push_back({timeNs, Origin::kVsync, "VSYNC-sf", i % 2});
        if (i > 0) samples.push_back({timeNs + 700'000, Origin::kCompositor, kLayer, 0});
        samples.push_back({timeNs + (i % 3 + 1) * 4'000'000, Origin::kProducer, kLayer, 1});
    }
    return samples;
}

std::string ftraceOf(const Samples& samples) {
    std::ostringstream text;
    writeFtrace(text, samples);
    return text.str();
}

std::string pageOf(const std::string& ftrace) {
    return "<!DOCTYPE html>\n<html><head><script>var hint = '# tracer:'; var a = 1 < 2;</script>\n"
           "<script class=\"trace-data\" type=\"application/text\">\nUSER PID\nroot 1\n</script>\n"
           "<script class=\"trace-data\" type=\"application/text\">\n" +
           ftrace + "</script>\n<!-- END TRACE --></body></html>\n";
}

std::string oldestPageOf(const std::string& ftrace) {
    const std::string escaped = replaced(replaced(ftrace, "\\", "\\\\"), "\"", "\\\"");
    return "<!DOCTYPE HTML>\n<html><script>\n  var linuxPerfData = \"\\\n" +
           replaced(escaped, "\n", "\\n\\\n") + "\";\n</script></html>\n";
}

std::string perfettoOf(const std::string& ftrace, PacketPacking packing, bool compact) {
    constexpr int kLinesPerBundle = 50;
    std::istringstream lines(ftrace);
    std::string trace = packet(bytesField(33, "a packet of another kind"));
    std::map<int, Bundle> bundles;  // by processor
    int count = 0;
    const auto flush = [&] {
        std::string packets;
        for (const auto& [cpu, bundle] : bundles)
            packets += packet(bytesField(1, numberField(1, static_cast<uint64_t>(cpu)) +
                                                    bundle.fields() + numberField(3, 0)));
        trace += packedPackets(packets, packing);
        bundles.clear();
    };
    for (std::string text; std::getline(lines, text);) {
        TextEvent event;
        if (!event.read(text)) continue;
        // Where a thread writes its markers is no matter, but that they keep their order.
        const int cpu = event.function == "tracing_mark_write" ? event.thread % 2 : event.cpu;
        bundles[cpu].add(event, compact);
        if (++count % (2 * kLinesPerBundle) == 0) flush();
    }
    flush();
    return trace;
}

std::string perfettoOf(const Samples& samples, PacketPacking packing) {
    return perfettoOf(ftraceOf(samples), packing, false);
}

std::string timelineOf(const TimelinePackets& frame, int64_t behindNs) {
    const auto number = [](int64_t value) { return static_cast<uint64_t>(value); };
    const auto clock = [&](uint64_t id, int64_t timeNs) {
        return bytesField(1, numberField(1, id) + numberField(2, number(timeNs)));
    };
    const auto event = [&](int64_t timeNs, int field, const std::string& fields) {
        return bytesField(1, numberField(8, number(timeNs - behindNs)) + numberField(58, 3) +
                                     bytesField(76, bytesField(field, fields)));
    };
    const std::string cookie = numberField(1, 5);
    return bytesField(1,
                      bytesField(6, clock(3, frame.beginNs - behindNs) + clock(6, frame.beginNs))) +
           event(frame.beginNs, 4,
                 cookie + bytesField(5, frame.layer) + numberField(6, number(frame.present)) +
                         numberField(9, number(frame.jank))) +
           event(frame.endNs, 5, cookie);
}

std::string zstdOf(const std::string& bytes) {
    std::string packed(ZSTD_compressBound(bytes.size()), '\0');
    packed.resize(ZSTD_compress(packed.data(), packed.size(), bytes.data(), bytes.size(), 1));
    return packed;
}

std::string gzipOf(const std::string& bytes) {
    z_stream stream = {};
    constexpr int kGzipWindowBits = 15 + 16;
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipWindowBits, 8,
                 Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, bytes.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

std::string zipOf(const std::vector<std::pair<std::string, std::string>>& files) {
    std::string packed;
    archive* zip = archive_write_new();
    archive_write_set_format_zip(zip);
    archive_write_set_bytes_per_block(zip, 0);
    if (archive_write_open(zip, &packed, nullptr, append, nullptr) != ARCHIVE_OK)
        throw std::runtime_error("no zip");
    for (const auto& [name, bytes] : files) {
        archive_entry* entry = archive_entry_new();
        archive_entry_set_pathname(entry, name.c_str());
        archive_entry_set_size(entry, static_cast<la_int64_t>(bytes.size()));
        archive_entry_set_filetype(entry, AE_IFREG);
        archive_write_header(zip, entry);
        archive_write_data(zip, bytes.data(), bytes.size());
        archive_entry_free(entry);
    }
    archive_write_free(zip);
    return packed;
}

std::string packedAtraceOf(const std::string& ftrace) {
    return "capturing trace... done\nTRACE:\n" + zlibOf(ftrace);
}

std::vector<NamedCapture> inEveryFormat(const Samples& samples) {
    const std::string ftrace = ftraceOf(samples);
    const std::string page = pageOf(ftrace);
    const std::string perfetto = perfettoOf(samples, PacketPacking::kNone);
    return {
            {"ftrace", ftrace},
            {"ftrace_crlf", replaced(ftrace, "\n", "\r\n")},
            {"ftrace_blank_start", "\n\n" + ftrace},
            {"ftrace_utf16", utf16Of(ftrace, false)},
            {"page_utf16_big", utf16Of(page, true)},
            {"atrace_z", packedAtraceOf(ftrace)},
            {"page", page},
            {"page_oldest", oldestPageOf(ftrace)},
            {"page_oldest_crlf", replaced(oldestPageOf(ftrace), "\n", "\r\n")},
            {"perfetto", perfetto},
            {"perfetto_zlib", perfettoOf(samples, PacketPacking::kZlib)},
            {"perfetto_zstd", perfettoOf(samples, PacketPacking::kZstd)},
            {"ftrace.gz", gzipOf(ftrace)},
            {"ftrace.zst", zstdOf(ftrace)},
            {"page.gz", gzipOf(page)},
            {"perfetto.gz", gzipOf(perfetto)},
            {"perfetto.zst", zstdOf(perfetto)},
            {"bundle.zip", zipOf({{"notes.txt", "captured on a Tuesday\n"}, {"a.html", page}})},
            {"twice.zip", zipOf({{"trace.gz", gzipOf(ftrace)}})},
    };
}

}  // namespace replay
