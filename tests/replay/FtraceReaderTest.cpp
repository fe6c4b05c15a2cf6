#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "replay/Error.h"
#include "replay/capture/FtraceReader.h"

namespace replay {
namespace {

struct GoodLine {
    const char* text;
    const char* task;
    int pid;
    int64_t timeNs;
    const char* function;
    const char* payload;
};

TEST(FtraceReader, EventLines_AreTakenApartInEveryFormThatKernelsPrint) {
    const GoodLine kLines[] = {
            {"  surfaceflinger-612   [001] .... 12.000034: tracing_mark_write: C|612|VSYNC-sf|1",
             "surfaceflinger", 612, 12'000'034'000, "tracing_mark_write", "C|612|VSYNC-sf|1"},
            {"  <...>-8282  (-----) [001] d..2 1646950.144658: tracing_mark_write: E", "<...>",
             8282, 1'646'950'144'658'000, "tracing_mark_write", "E"},
            {"Binder:612_4-1893 (  612) [000] .... 7.5: tracing_mark_write: E|612", "Binder:612_4",
             1893, 7'500'000'000, "tracing_mark_write", "E|612"},
            {"Thread - 2 [x]-17 (17) [012] ...1 1.123456789: print: a b", "Thread - 2 [x]", 17,
             1'123'456'789, "print", "a b"},
            {"odd [0] name-3 [000] .... 1.000000: tracing_mark_write: B|3|f [1]: g", "odd [0] name",
             3, 1'000'000'000, "tracing_mark_write", "B|3|f [1]: g"},
            {"   VSyncThread-99    [000]  3206.312345: 0: C|99|VSYNC|0", "VSyncThread", 99,
             3'206'312'345'000, "0", "C|99|VSYNC|0"},
            {"<idle>-0 [001] d.h3 2.000000: sched_switch: prev_comm=swapper/1 ==> next_comm=x",
             "<idle>", 0, 2'000'000'000, "sched_switch", "prev_comm=swapper/1 ==> next_comm=x"},
            {"x-1 [000] .... 2.000000: sys_exit:", "x", 1, 2'000'000'000, "sys_exit", ""},
    };
    for (const GoodLine& expected : kLines) {
        SCOPED_TRACE(expected.text);
        const auto line = parseFtraceLine(expected.text);
        ASSERT_TRUE(line.has_value());
        EXPECT_EQ(line->task, expected.task);
        EXPECT_EQ(line->pid, expected.pid);
        EXPECT_EQ(line->timeNs, expected.timeNs);
        EXPECT_EQ(line->function, expected.function);
        EXPECT_EQ(line->payload, expected.payload);
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

std::vector<std::string> payloadsOf(const std::string& text, FtraceLosses* losses = nullptr) {
    std::istringstream in(text);
    std::vector<std::string> payloads;
    const FtraceLosses found = readFtrace(
            in, "file", [&](const Marker& marker) { payloads.emplace_back(marker.payload); });
    if (losses != nullptr) *losses = found;
    return payloads;
}

std::string errorOf(const std::string& text) {
    try {
        payloadsOf(text);
    } catch (const InputError& error) {
        return error.what();
    }
    return "no error";
}

TEST(FtraceReader, Text_YieldsTheMarkersAndSkipsWhatSurroundsThem) {
    FtraceLosses losses;
    const std::string text =
            std::string("capturing trace... done\nTRACE:\n# tracer: nop\n\n  \r\n") + kEvent +
            "a-1 [000] .... 1.0: sched_switch: C|1|n|2\nCPU:2 [LOST 53 EVENTS]\nCPU:0 [LOST 4 "
            "EVENTS]\n"
            "a-1 [000] .... 1.1: tracing_mark_write: C|1|n|3\r\na-1 [000] .... 1.2: 0: E\na-1 [000";
    EXPECT_EQ(payloadsOf(text, &losses), (std::vector<std::string>{"C|1|n|1", "C|1|n|3", "E"}));
    EXPECT_EQ(losses.lostEvents, 57u);
    EXPECT_TRUE(losses.lastLineCutOff);
}

TEST(FtraceReader, BadLines_AreNamedByFileAndLine) {
    const std::string event = kEvent;
    EXPECT_EQ(
            errorOf("# c\n" + event + "garbage\x01\n" + event).find("file:3: not an ftrace event"),
            0u);
    EXPECT_NE(errorOf("garbage\x01\n").find("\"garbage\\x01\""), std::string::npos);
    EXPECT_EQ(errorOf("no event at all").find("file:1: "), 0u);
    EXPECT_EQ(errorOf(event + "CPU:2 [LOST many EVENTS]\n").find("file:2: "), 0u);
    EXPECT_EQ(errorOf(event + std::string(1'000'000, 'x')).find("file:2: line too long"), 0u);
}

TEST(FtraceReader, ErrorsOfTheSink_CarryFileAndLine) {
    std::istringstream in(std::string("#\n") + kEvent);
    try {
        readFtrace(in, "file", [](const Marker&) { throw InputError("no good"); });
        FAIL() << "the sink's error was lost";
    } catch (const InputError& error) {
        EXPECT_STREQ(error.what(), "file:2: no good");
    }
}

}  // namespace
}  // namespace replay
