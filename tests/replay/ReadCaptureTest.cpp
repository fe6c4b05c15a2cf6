// From files as they travel to captures: every format, and what becomes of broken ones.

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/Progress.h"
#include "replay/capture/ReadCapture.h"
#include "tests/ErrorOf.h"
#include "tests/replay/CaptureFormats.h"

namespace replay {
namespace {

Capture read(const std::string& bytes) {
    MemorySource source(bytes);
    return readCapture(source, "file");
}

// Also checks that what a user would see is one clear line.
std::string complaintAbout(const std::string& bytes) {
    const std::string text = errorOf([&] { read(bytes); });
    EXPECT_EQ(text.rfind("file", 0), 0u) << text;
    EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    return text;
}

void expectSame(const Capture& read, const Capture& made) {
    EXPECT_EQ(read.originNs, made.originNs);
    EXPECT_EQ(read.durationNs, made.durationNs);
    EXPECT_EQ(read.outOfOrder, made.outOfOrder);
    EXPECT_EQ(read.lost, "");
    ASSERT_EQ(read.layers.size(), made.layers.size());
    for (size_t i = 0; i < read.layers.size(); ++i) {
        EXPECT_EQ(read.layers[i].counter, made.layers[i].counter);
        EXPECT_EQ(read.layers[i].name.layer, made.layers[i].name.layer);
        EXPECT_EQ(read.layers[i].pendingAtStart, made.layers[i].pendingAtStart);
        EXPECT_TRUE(read.layers[i].queueTimesNs == made.layers[i].queueTimesNs);
        EXPECT_TRUE(read.layers[i].consumes == made.layers[i].consumes);
    }
    ASSERT_EQ(read.vsyncs.size(), made.vsyncs.size());
    for (size_t i = 0; i < read.vsyncs.size(); ++i) {
        EXPECT_EQ(read.vsyncs[i].name, made.vsyncs[i].name);
        EXPECT_TRUE(read.vsyncs[i].timesNs == made.vsyncs[i].timesNs);
    }
}

TEST(ReadCapture, TheSameGame_IsTheSameCaptureInEveryFormat) {
    const Capture made = read(ftraceOf(gameSamples()));
    for (const NamedCapture& file : inEveryFormat(gameSamples())) {
        SCOPED_TRACE(file.name);
        expectSame(read(file.bytes), made);
    }
}

// Cut anywhere, a capture yields what was whole, says so in one line, and invents nothing.
TEST(ReadCapture, CutOffCaptures_AreUsedAsFarAsTheyGo) {
    const Capture made = read(ftraceOf(gameSamples()));
    for (const NamedCapture& file : inEveryFormat(gameSamples())) {
        for (const size_t tenths : {5, 9}) {
            SCOPED_TRACE(std::string(file.name) + " " + std::to_string(tenths));
            const Capture part = read(file.bytes.substr(0, file.bytes.size() * tenths / 10));
            EXPECT_NE(part.lost.find("cut off: "), std::string::npos) << part.lost;
            EXPECT_EQ(part.lost.find('\n'), std::string::npos);
            const bool isPacked = std::string(file.name).find_first_of(".") != std::string::npos;
            EXPECT_EQ(part.lost.find("unpacking ended early") != std::string::npos,
                      isPacked || std::string(file.name) == "atrace_z");
            const auto& times = part.layers.at(0).queueTimesNs;
            const auto& all = made.layers.at(0).queueTimesNs;
            EXPECT_GT(times.size(), 300u);
            EXPECT_LT(times.size(), all.size());
            // Bundles of two CPUs are cut between them, where the one that is missing leaves gaps.
            if (std::string(file.name).find("perfetto") == std::string::npos) {
                EXPECT_TRUE(std::equal(times.begin(), times.end(), all.begin()));
            }
        }
    }
}

// As slow as a source can be: readers then hold exactly as much as they asked for.
class TricklingSource : public ByteSource {
  public:
    explicit TricklingSource(std::string_view bytes) : mBytes(bytes) {}
    size_t read(char* buffer, size_t size) override {
        return mBytes.read(buffer, std::min<size_t>(size, 1));
    }

  private:
    MemorySource mBytes;
};

// With blanks before it, so that the last `mark` in it is at `position`.
std::string shifted(const std::string& page, const char* mark, size_t position) {
    return "<html>" + std::string(position - 6 - page.rfind(mark), ' ') + page;
}

TEST(ReadCapture, Pages_MayHaveTheirMarksAnywhereBetweenTwoPieces) {
    constexpr size_t kPieceBytes = 64 * 1024;
    constexpr size_t kTagBytes = 512;
    const std::string text = ftraceOf(gameSamples(4));
    const std::string events = text.substr(text.find("FUNCTION\n") + 9);
    const std::string page = pageOf(text);
    const std::string oldest = oldestPageOf("# tracer: nop\n" + events);
    const Capture made = read(text);
    for (size_t shift = 0; shift < 24; ++shift) {
        SCOPED_TRACE(shift);
        const std::string filler = "#" + std::string(kPieceBytes - 4 - shift - text.size(), 'x');
        const std::string comment = "#" + std::string(kPieceBytes - 10 - shift, 'x');
        for (const std::string& moved :
             {shifted(page, "<script", kPieceBytes - shift),
              shifted(oldest, "# tracer:", kPieceBytes - shift),
              shifted(oldest, "# tracer:", kPieceBytes - kTagBytes + shift),
              pageOf(text + filler + "\n"),
              oldestPageOf("# tracer: nop\n" + comment + "\n" + events)}) {
            TricklingSource source(moved);
            expectSame(readCapture(source, "file"), made);
        }
    }
}

TEST(ReadCapture, GzipInPieces_IsOneFile) {
    const std::string text = ftraceOf(gameSamples(130));
    const size_t half = text.size() / 2;
    expectSame(read(gzipOf(text.substr(0, half)) + gzipOf(text.substr(half))), read(text));
}

TEST(ReadCapture, DamageInTheMiddle_CostsOnlyWhatItHit) {
    const Samples samples = gameSamples(130);
    const std::string whole = ftraceOf(samples);
    const size_t middle = whole.find('\n', whole.size() / 2) + 1;
    const auto broken = [&](const std::string& inserted) {
        return whole.substr(0, middle) + inserted + whole.substr(middle);
    };
    const std::string event = "a-1 [000] .... 101.0: tracing_mark_write: ";
    const std::pair<std::string, const char*> kDamages[] = {
            {"B|1|a name with\na line break\n\n", "not an ftrace event"},
            {std::string(300'000, 'x') + "\n", "too long"},
            {event + "C|1|VSYNC-sf|\n", "\"VSYNC-sf\" has no whole number"},
            {event + "C|612|" + samples[1].name + "|65\n", "0 to 64"},
            {"a-1 [000] .... 999999999.0: tracing_mark_write: C|1|VSYNC-sf|1\n", "hours"},
    };
    const Capture made = read(whole);
    for (const auto& [inserted, expected] : kDamages) {
        Capture part = read(broken(inserted));
        EXPECT_NE(part.lost.find(expected), std::string::npos) << part.lost;
        EXPECT_NE(part.lost.find(" skipped"), std::string::npos) << part.lost;
        part.lost.clear();
        expectSame(part, made);
    }

    std::string trace = perfettoOf(samples, PacketPacking::kZlib);
    const std::string head = trace.substr(0, trace.size() - 40);
    trace[head.size()] ^= 0x55;  // within the last packet's zlib stream
    const std::string lost = read(trace).lost;
    EXPECT_NE(lost.find("1 damaged packet skipped: file: packet at byte"), std::string::npos)
            << lost;
    EXPECT_NE(lost.find("unpack"), std::string::npos) << lost;
}

// A packet that holds `packets`, packed, as its field for zstd; all lengths fit one byte.
std::string packedPacket(const std::string& packets) {
    const std::string packed = zstdOf(packets);
    const std::string field =
            "\xaa\x08" + std::string(1, static_cast<char>(packed.size())) + packed;
    return "\x0a" + std::string(1, static_cast<char>(field.size())) + field;
}

TEST(ReadCapture, DamageWithinPackedPackets_CountsForTheOuterOne) {
    const std::string trace = perfettoOf(gameSamples(130), PacketPacking::kZstd);
    const std::string cutOff = packedPacket("\x0a\x7f\x01");
    const Capture made = read(trace);
    const std::pair<std::string, const char*> kDamages[] = {
            {cutOff, "not whole"},
            {packedPacket(cutOff), "packed twice"},
            {packedPacket("\x0a\x02\x0a\x7f"), "cannot be parsed"},
            {"\x0a\x02\x0a\x7f", "cannot be parsed"},
    };
    for (const auto& [packet, expected] : kDamages) {
        Capture part = read(packet + trace);
        EXPECT_EQ(part.lost.find("1 damaged packet skipped: file: packet at byte 0: "), 0u);
        EXPECT_NE(part.lost.find(expected), std::string::npos) << part.lost;
        part.lost.clear();
        expectSame(part, made);
    }
}

TEST(ReadCapture, EventsThatTheKernelLost_AreReported) {
    EXPECT_EQ(read(ftraceOf(gameSamples(130)) + "CPU:2 [LOST 53 EVENTS]\nCPU:0 [LOST 4 EVENTS]\n")
                      .lost,
              "57 events lost by the kernel");
    const std::string bundleWithLoss("\x0a\x04\x0a\x02\x18\x01", 6);
    const Capture capture =
            read(perfettoOf(gameSamples(130), PacketPacking::kNone) + bundleWithLoss);
    EXPECT_EQ(capture.lost, "the kernel lost events in 1 place, it does not say how many");
}

TEST(ReadCapture, WhatIsNoCapture_IsRefusedInOneLine) {
    const std::string ftrace = ftraceOf(gameSamples(130));
    std::string sevenTimes = ftrace;
    for (int i = 0; i < 7; ++i) sevenTimes = gzipOf(sevenTimes);
    const std::string endless = gzipOf(std::string(40'000'000, ' '));
    const std::string packetsInPackets =
            perfettoOf({}, PacketPacking::kNone) + std::string("\x0a\x02\x0a\xff", 4);
    const std::pair<std::string, const char*> kCases[] = {
            {"", "found none"},
            {"\n\n", "found none"},
            {"no event at all", "file:1: not an ftrace event"},
            {"no event at all", "give ftrace text, systrace HTML or a Perfetto trace"},
            {"# fine\nnot a trace\nmore\n", "file:2: not an ftrace event"},
            {std::string("\x7f"
                         "ELF\x02\x01\x01\0\0",
                         9),
             "file:1: not an ftrace event"},
            {"<!DOCTYPE html><html><p># tracer: nop</p></html>", "no trace in the page"},
            {"<html><script class=\"trace-data\">\nUSER PID\n</script>", "no trace in the page"},
            {std::string("\x0a\xff\xff\x00", 4), "not a Perfetto trace"},
            {"\x0a\x7f\x01", "not a Perfetto trace"},
            {packetsInPackets, "found none"},
            {zipOf({{"a.txt", "hello"}, {"b.txt", "world"}}), "found \"a.txt\", \"b.txt\""},
            {"PK\x03\x04 and nothing", "cannot be unpacked"},
            {gzipOf(ftrace).substr(0, 12), "cannot be unpacked"},
            {sevenTimes, "packed more than 3 times"},
            {endless, "200 times its size"},
    };
    for (const auto& [bytes, expected] : kCases) {
        EXPECT_NE(complaintAbout(bytes).find(expected), std::string::npos) << expected << "\n"
                                                                           << complaintAbout(bytes);
    }
}

TEST(ReadCapture, FurtherCapturesInAnArchive_AreNamed) {
    const std::string ftrace = ftraceOf(gameSamples(130));
    const Capture capture =
            read(zipOf({{"a", ftrace}, {"readme", "hello"}, {"b", ftrace}, {"c", ftrace}}));
    EXPECT_EQ(capture.lost,
              "of the captures in it only \"a\" is played; unpack it for \"b\", \"c\"");
}

TEST(ReadCapture, TheFrameTimeline_IsBroughtToTheClockOfTheCounters) {
    const std::string trace = perfettoOf(gameSamples(130), PacketPacking::kNone);
    const int64_t origin = read(trace).originNs;
    const TimelinePackets frame{"TX - game#1", origin + 1'000, origin + 5'000, 2, 64};
    const Capture capture = read(trace + timelineOf(frame, 777'000'000));
    ASSERT_EQ(capture.timeline.size(), 1u);
    EXPECT_EQ(capture.timeline[0].layer, frame.layer);
    EXPECT_EQ(capture.timeline[0].endNs, 5'000);
    EXPECT_TRUE(isMissed(capture.timeline[0]));
    EXPECT_EQ(verdictOf(capture.timeline[0]), "late: application deadline missed");
}

class EndlessSource : public ByteSource {
  public:
    explicit EndlessSource(std::string piece) : mPiece(std::move(piece)) {}
    size_t read(char* buffer, size_t size) override {
        const size_t count = std::min(size, mPiece.size());
        std::copy_n(mPiece.begin(), count, buffer);
        return count;
    }

  private:
    const std::string mPiece;
};

TEST(ReadCapture, WhatNeverEnds_IsRefused) {
    const std::pair<std::string, const char*> kStreams[] = {
            {std::string(65'536, '\0'), "file:1: no end of the line"},
            {std::string(65'536, '\n'), "file:1000001: no event so far"},
            {"not a trace\n", "and 10000 more bad lines"},
    };
    for (const auto& [piece, expected] : kStreams) {
        EndlessSource source(piece);
        try {
            readCapture(source, "file");
            ADD_FAILURE() << "read to the end";
        } catch (const InputError& error) {
            EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
        }
    }
}

// A slice of each kind that stands in for the counters, on a display of 100 Hz.
TEST(ReadCapture, WithoutTheCompositorsCounters_OthersStandIn) {
    struct Case {
        const char* vsync;  // and what shows queued and taken buffers
        const char* queued;
        const char* taken;
        const char* layer;
        const char* standIn;
    };
    const Case kCases[] = {
            {"700 C|612|VSYNC-app|", "99 C|99|QueuedBuffer - SurfaceView[a.b/c.D]#1BLAST#1|1",
             "99 C|99|QueuedBuffer - SurfaceView[a.b/c.D]#1BLAST#1|0",
             "SurfaceView[a.b/c.D](BLAST)#1", "application's counter"},
            {"700 C|612|VSYNC|", "1893 B|612|SurfaceView - a.b/c.D#0: 2", "612 B|612|latchBuffer",
             "SurfaceView[a.b/c.D](BLAST)#0", "slices"},
            {"700 C|612|VSYNC|", "99 B|98|queueBuffer", "612 B|612|latchBuffer",
             "SurfaceView[process-98/thread-99](BLAST)#0", "slices"},
    };
    for (const Case& test : kCases) {
        std::string text;
        const auto add = [&](int ms, const std::string& what) {
            const size_t blank = what.find(' ');
            text += "a-" + what.substr(0, blank) + " [000] .... 1." + std::to_string(100 + ms) +
                    ": tracing_mark_write: " + what.substr(blank + 1) + "\n";
        };
        for (int i = 0; i < 20; ++i) {
            add(10 * i, test.vsync + std::to_string(i % 2));
            add(10 * i + 1, test.taken);
            add(10 * i + 5, test.queued);
        }
        const Capture capture = read(text);
        const LayerEvents& layer = capture.layers.at(0);
        EXPECT_EQ(layer.name.layer, test.layer);
        EXPECT_NE(layer.standIn.find(test.standIn), std::string::npos) << layer.standIn;
        EXPECT_EQ(layer.queueTimesNs.size(), 20u) << test.layer;
        EXPECT_EQ(layer.consumes.size(), 19u) << test.layer;
        EXPECT_EQ(vsyncTrack(capture, {}).periodNs, 10'000'000);
    }
}

std::string drawn(int descriptor, int readFrom, uint64_t totalBytes) {
    {
        Progress progress(descriptor, "/some/folder/game\x1b.ftrace");
        for (const uint64_t done : {uint64_t{0}, totalBytes / 2, totalBytes / 2 + 1, totalBytes})
            progress.show(done, totalBytes);
    }
    EXPECT_EQ(write(descriptor, "$", 1), 1);
    // A terminal hands on what is written to it when it likes.
    std::string text;
    for (char c = 0; c != '$' && ::read(readFrom, &c, 1) == 1;) text += c;
    return text;
}

TEST(Progress, Bar_IsDrawnForBigFilesOnATerminalOnly) {
    constexpr uint64_t kBig = 400'000'000;
    int terminal[2];
    ASSERT_EQ(openpty(&terminal[0], &terminal[1], nullptr, nullptr, nullptr), 0);
    const std::string bar = drawn(terminal[1], terminal[0], kBig);
    EXPECT_NE(bar.find("\rreading game?.ftrace [###############---------------]  50 %\rreading"),
              std::string::npos)
            << bar;
    EXPECT_EQ(bar.substr(bar.size() - 5), "\r\x1b[K$");
    EXPECT_EQ(drawn(terminal[1], terminal[0], 1'000'000), "$");
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    EXPECT_EQ(drawn(pipes[1], pipes[0], kBig), "$");
    for (const int descriptor : {terminal[0], terminal[1], pipes[0], pipes[1]}) close(descriptor);
}

}  // namespace
}  // namespace replay
