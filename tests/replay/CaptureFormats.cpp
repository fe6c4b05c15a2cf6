#include "tests/replay/CaptureFormats.h"

#include <archive.h>
#include <archive_entry.h>
#include <zlib.h>
#include <zstd.h>

#include <cstdint>
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

std::string printEvent(const CounterSample& sample) {
    const std::string marker = "C|612|" + sample.name + "|" + std::to_string(sample.value) + "\n";
    const std::string print = numberField(1, 77) + bytesField(2, marker);
    return bytesField(2, numberField(1, static_cast<uint64_t>(sample.timeNs)) +
                                 numberField(2, 612) + bytesField(3, print));
}

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

std::string perfettoOf(const Samples& samples, PacketPacking packing) {
    constexpr size_t kSamplesPerBundle = 50;
    std::string trace = packet(bytesField(33, "a packet of another kind"));
    for (size_t start = 0; start < samples.size(); start += 2 * kSamplesPerBundle) {
        std::string events[2];
        for (size_t i = start; i < samples.size() && i < start + 2 * kSamplesPerBundle; ++i) {
            events[i / 3 % 2] += printEvent(samples[i]);
        }
        std::string packets;
        for (uint64_t cpu = 0; cpu < 2; ++cpu) {
            const std::string bundle = numberField(1, cpu) + events[cpu] + numberField(3, 0);
            packets += packet(bytesField(1, bundle));
        }
        trace += packedPackets(packets, packing);
    }
    return trace;
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
