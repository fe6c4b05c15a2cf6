#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/FtraceReader.h"
#include "tests/ErrorOf.h"

namespace replay {
namespace {

std::string fieldsOf(const FtraceLine& line) {
    const auto text = [](std::string_view part) { return std::string(part); };
    return text(line.task) + "|" + std::to_string(line.pid) + "|" + std::to_string(line.timeNs) +
           "|" + text(line.function) + "|" + text(line.payload);
}

TEST(FtraceReader, EventLines_AreTakenApartInEveryFormThatKernelsPrint) {
    const std::pair<const char*, const char*> kLines[] = {
            {"  surfaceflinger-612   [001] .... 12.000034: tracing_mark_write: C|612|VSYNC-sf|1",
             "surfaceflinger|612|12000034000|tracing_mark_write|C|612|VSYNC-sf|1"},
            {"  <...>-8282  (-----) [001] d..2 1646950.144658: tracing_mark_write: E",
             "<...>|8282|1646950144658000|tracing_mark_write|E"},
            {"Binder:612_4-1893 (  612) [000] .... 7.5: tracing_mark_write: E|612",
             "Binder:612_4|1893|7500000000|tracing_mark_write|E|612"},
            {"Thread - 2 [x]-17 (17) [012] ...1 1.123456789: print: a b",
             "Thread - 2 [x]|17|1123456789|print|a b"},
            {"odd [0] name-3 [000] .... 1.000000: tracing_mark_write: B|3|f [1]: g",
             "odd [0] name|3|1000000000|tracing_mark_write|B|3|f [1]: g"},
            {"   VSyncThread-99    [000]  3206.312345: 0: C|99|VSYNC|0",
             "VSyncThread|99|3206312345000|0|C|99|VSYNC|0"},
            {"<idle>-0 [001] d.h3 2.000000: sched_switch: prev_comm=swapper/1 ==> next_comm=x",
             "<idle>|0|2000000000|sched_switch|prev_comm=swapper/1 ==> next_comm=x"},
            {"x-1 [000] .... 2.000000: sys_exit:", "x|1|2000000000|sys_exit|"},
    };
    for (const auto& [text, expected] : kLines) {
        const auto line = parseFtraceLine(text);
        ASSERT_TRUE(line.has_value()) << text;
        EXPECT_EQ(fieldsOf(*line), expected);
    }
}

TEST(FtraceReader, LinesOfAnythingElse_AreNotEvents) {
    for (const char* text :
         {"", "hello", "<!DOCTYPE html>", "task [000] .... 1.0: f: p",
          "task-x [000] .... 1.0: f: p", "task-1 [cpu] .... 1.0: f: p", "task-1 000 .... 1.0: f: p",
          "task-1 [000] .... 1: f: p", "task-1 [000] .... 1.: f: p", "task-1 [000] .... .5: f: p",
          "task-1 [000] .... 1.5 f: p", "task-1 [000] .... 1.5: no function",
          "task-1 (tgid) [000] .... 1.5: f: p", "task-1 [000] .... 9999999999.5: f: p",
          "task-1 [000] .... 1.0123456789: f: p", "task-99999999999 [000] .... 1.5: f: p",
          "-1 [000] .... 1.5: f: p"}) {
        EXPECT_FALSE(parseFtraceLine(text).has_value()) << text;
    }
}

constexpr char kEvent[] = "a-1 [000] .... 1.000000: tracing_mark_write: C|1|n|1\n";

std::vector<std::string> payloadsOf(const std::string& text, std::string* lost = nullptr) {
    MemorySource source(text);
    ReadContext context("file");
    std::vector<std::string> payloads;
    readFtrace(source, context,
               [&](const Marker& marker) { payloads.emplace_back(marker.payload); });
    if (lost != nullptr) *lost = context.losses.describe();
    return payloads;
}

std::string complaintAbout(const std::string& text) {
    return errorOf([&] { payloadsOf(text); });
}

TEST(FtraceReader, Text_YieldsTheMarkersAndSkipsWhatSurroundsThem) {
    std::string lost;
    const std::string text =
            std::string("capturing trace... done\nTRACE:\n# tracer: nop\n\n  \r\n") + kEvent +
            "a-1 [000] .... 1.0: sched_switch: C|1|n|2\nCPU:2 [LOST 53 EVENTS]\n"
            "a-1 [000] .... 1.1: tracing_mark_write: C|1|n|3\r\na-1 [000] .... 1.2: 0: E\na-1 [000";
    EXPECT_EQ(payloadsOf(text, &lost), (std::vector<std::string>{"C|1|n|1", "C|1|n|3", "E"}));
    EXPECT_EQ(lost, "53 events lost by the kernel; cut off: the text ends within a line");
}

// Lines around the size of the reader's buffers, so that they end before, at and behind its edges.
TEST(FtraceReader, LinesOfAnyLength_AreCutWhereTheyEnd) {
    for (const size_t size : {65'534, 65'535, 65'536, 65'537, 262'143, 262'144, 327'680, 400'000}) {
        std::string lost;
        const std::string comment = "#" + std::string(size - 1, 'x') + "\n";
        EXPECT_EQ(payloadsOf(kEvent + comment + comment + kEvent, &lost).size(), 2u) << size;
        EXPECT_EQ(lost.empty(), size <= 65'536) << size << lost;
    }
}

TEST(FtraceReader, BadLines_AreSkippedUntilTheyAreTheMost) {
    const std::string event = kEvent;
    std::string lost;
    EXPECT_EQ(payloadsOf("# c\n" + event + "garbage\x01\n" + event, &lost).size(), 2u);
    EXPECT_EQ(lost.find("1 damaged line skipped: file:3: not an ftrace event"), 0u) << lost;
    EXPECT_NE(lost.find("\"garbage\\x01\""), std::string::npos) << lost;
    EXPECT_EQ(complaintAbout(event + "CPU:2 [LOST many EVENTS]\nx\n").find("file:2: not an ftrace"),
              0u);
    EXPECT_NE(complaintAbout(event + "x\ny\n").find("and 1 more bad line, with only 1 good"),
              std::string::npos);
    EXPECT_EQ(complaintAbout(event + std::string(1'000'000, 'x') + "\nx\n")
                      .find("file:2: line too long"),
              0u);
}

TEST(FtraceReader, ErrorsOfTheSinkThatAreNotDamage_EndTheReading) {
    MemorySource source(kEvent);
    ReadContext context("file");
    EXPECT_THROW(readFtrace(source, context, [](const Marker&) { throw InputError("too big"); }),
                 InputError);
}

}  // namespace
}  // namespace replay
