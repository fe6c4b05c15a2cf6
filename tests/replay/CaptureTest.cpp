#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/capture/Capture.h"
#include "replay/capture/Part.h"
#include "tests/ErrorOf.h"

namespace replay {
namespace {

using Times = std::vector<int64_t>;
constexpr char kOldCounter[] = "SurfaceView - a.b/c.D#0";

TEST(LayerName, Counters_BecomeTheCompositorsPresentName) {
    const std::pair<const char*, const char*> kNames[] = {
            {"SurfaceView - a.b/c.D#0", "SurfaceView[a.b/c.D](BLAST)#0"},
            {"BufferTX - SurfaceView[a.b/c.D](BLAST)#12", "SurfaceView[a.b/c.D](BLAST)#12"},
            {"BufferTX - SurfaceView[a.b/c.D]#12", "SurfaceView[a.b/c.D](BLAST)#12"},
            {"BufferTX - SurfaceView[a.b/c.D]@1(BLAST)#3", "SurfaceView[a.b/c.D]@1(BLAST)#3"},
    };
    for (const auto& [counter, layer] : kNames) {
        const auto name = layerOfCounter(counter);
        ASSERT_TRUE(name.has_value()) << counter;
        EXPECT_EQ(name->layer, layer);
        EXPECT_EQ(name->package, "a.b");
    }
    for (const char* counter :
         {"VSYNC-sf", "SurfaceView - a.b/c.D", "SurfaceView - #1", "SurfaceView - nothing#1",
          "SurfaceView - /c.D#1", "BufferTX - a.b/c.D#1", "BufferTX - SurfaceView[a.b/c.D](BLAST)#",
          "BufferTX - SurfaceView[a.b/c.D(BLAST)#1", "QueuedBuffer - SurfaceView[a.b/c.D](BLAST)#1",
          "SurfaceView - a.b/c.D#1x", "BufferTX - StatusBar#4"}) {
        EXPECT_FALSE(layerOfCounter(counter).has_value()) << counter;
    }
    EXPECT_FALSE(layerOfCounter("SurfaceView - a.b/" + std::string(5000, 'c') + "#1").has_value());
}

Capture captureOf(const std::vector<std::pair<int64_t, int64_t>>& levels) {
    CaptureBuilder builder;
    for (const auto& [timeNs, level] : levels) builder.addCounter(timeNs, kOldCounter, level);
    return builder.build("test");
}

TEST(Capture, CounterChanges_BecomeQueueAndConsumeEventsOneByOne) {
    const Capture capture =
            captureOf({{1000, 2}, {1010, 3}, {1020, 3}, {1030, 1}, {1040, 3}, {1050, 2}});
    ASSERT_EQ(capture.layers.size(), 1u);
    EXPECT_EQ(capture.originNs, 1000);
    EXPECT_EQ(capture.durationNs, 50);
    EXPECT_EQ(capture.layers[0].queueTimesNs, (Times{10, 40, 40}));
    EXPECT_EQ(capture.layers[0].consumes, (std::vector<ConsumeEvent>{{30, 2}, {30, 1}, {50, 2}}));
}

TEST(Capture, FallsOnOtherThreads_AreReplacedBuffersAndNotConsumedOnes) {
    CaptureBuilder builder;
    const std::string head = std::string("C|612|") + kOldCounter + "|";
    const std::pair<int, int> kSamples[] = {{0, 1893}, {1, 1893}, {2, 1893}, {1, 1893}, {0, 612}};
    int64_t timeNs = 0;
    for (const auto& [level, thread] : kSamples) {
        builder.addMarker({timeNs += 10, head + std::to_string(level), thread});
    }
    const LayerEvents layer = builder.build("test").layers.at(0);
    EXPECT_EQ(layer.queueTimesNs, (Times{10, 20}));
    EXPECT_EQ(layer.replacedTimesNs, (Times{30}));
    EXPECT_EQ(layer.consumes, (std::vector<ConsumeEvent>{{40, 0}}));
}

TEST(Capture, LayersThatFollowEachOther_CanBeJoined) {
    CaptureBuilder builder;
    const std::string second = "SurfaceView - a.b/c.D#1";
    for (const auto& [timeNs, level] : {std::pair{10, 0}, {20, 1}, {30, 0}, {40, 1}}) {
        builder.addCounter(timeNs, kOldCounter, level);
        builder.addCounter(timeNs + 50, second, level);
    }
    Capture capture = builder.build("test");
    const LayerEvents& joined = capture.layers.at(joinLayers(capture, {0, 1}));
    EXPECT_EQ(joined.name.layer, "SurfaceView[a.b/c.D](BLAST)#1");
    EXPECT_EQ(joined.queueTimesNs, (Times{10, 30, 60, 80}));
    EXPECT_EQ(joined.consumes, (std::vector<ConsumeEvent>{{20, 0}, {70, 0}}));
}

TEST(Capture, LinesOutOfOrder_AreSortedAndCounted) {
    const Capture capture = captureOf({{1000, 0}, {1030, 2}, {1020, 1}, {1040, 1}});
    EXPECT_EQ(capture.layers.at(0).queueTimesNs, (Times{20, 30}));
    EXPECT_EQ(capture.layers.at(0).consumes, (std::vector<ConsumeEvent>{{40, 1}}));
    EXPECT_EQ(capture.outOfOrder, 1u);
}

TEST(Capture, DamagedCounters_AreRefusedOnlyWhereTheyMatter) {
    CaptureBuilder builder;
    for (const char* harmless :
         {"C|1|heat|1.5", "C|1|heat", "C|1", "B|1|VSYNC-sf", "C|1|heat|2|category"}) {
        builder.addMarker({0, harmless, 1});
    }
    const auto addError = [&](const std::string& payload) {
        return errorOf([&] { builder.addMarker({0, payload, 1}); });
    };
    EXPECT_NE(addError("C|1|VSYNC-sf|").find("no whole number"), std::string::npos);
    EXPECT_NE(addError(std::string("C|1|") + kOldCounter + "|1x").find("no whole number"),
              std::string::npos);
    EXPECT_NE(addError(std::string("C|1|") + kOldCounter + "|2000000000").find("0 to 64"),
              std::string::npos);
    EXPECT_NE(addError(std::string("C|1|") + kOldCounter + "|-1").find("0 to 64"),
              std::string::npos);
    builder.addCounter(0, kOldCounter, 0);
    EXPECT_NE(errorOf([&] {
                  builder.addCounter(INT64_C(100'000'000'000'000), kOldCounter, 1);
              }).find("hours"),
              std::string::npos);
}

TEST(Capture, WithoutAnyLayer_SaysWhatWasSoughtAndFound) {
    CaptureBuilder builder;
    EXPECT_NE(errorOf([&] { builder.build("f"); }).find("found none"), std::string::npos);
    builder.addMarker({0, "C|1|VSYNC-sf|1", 1});
    builder.addMarker({0, "C|1|heat|2|category", 1});
    const std::string error = errorOf([&] { builder.build("f"); });
    EXPECT_EQ(error.find("f: "), 0u);
    EXPECT_NE(error.find("\"BufferTX - SurfaceView["), std::string::npos);
    EXPECT_NE(error.find("found \"VSYNC-sf\", \"heat\""), std::string::npos);
    builder.addMarker({0, "C|1|a.b/a.b.Main#0|1", 1});
    builder.addMarker({0, "C|1|BufferTX - a.b/a.b.Main#7|1", 1});
    EXPECT_NE(errorOf([&] { builder.build("f"); }).find("found \"BufferTX - a.b/a.b.Main#7\";"),
              std::string::npos);
}

TEST(VsyncTrack, Period_IsMeasuredThroughPausesJitterAndHalfRate) {
    const auto measured = [](const Times& intervals) {
        Times times{0};
        for (const int64_t interval : intervals) times.push_back(times.back() + interval);
        return measurePeriodNs(times).value_or(-1);
    };
    EXPECT_EQ(measured(Times(20, 16'667'000)), 16'667'000);
    EXPECT_EQ(measured({10, 20, 20, 20, 10, 20, 20, 20, 20, 900, 20, 10}),
              10);  // mostly every second
    EXPECT_EQ(measured({98, 102, 100, 99, 101, 301, 100, 100, 5000, 100}), 100);
    EXPECT_EQ(measured(Times(7, 10)), -1);
}

// Vsyncs with jitter, of which some are missing where `hz` is given with a decimal.
Times vsyncsOf(const std::vector<std::pair<double, int>>& stretches) {
    Times times{0};
    double next = 0;
    for (const auto& [hz, count] : stretches) {
        for (int i = 0; i < count; ++i) {
            next += 1e9 / std::floor(hz);
            const bool isMissing = hz > std::floor(hz) && (i * 7919) % 10 < 3;
            if (!isMissing) times.push_back(std::llround(next) + (i * i * 613) % 1001 * 300);
        }
    }
    return times;
}

TEST(VsyncTrack, Rates_AreMeasuredByStretches) {
    const std::vector<std::pair<double, int>> kDisplays[] = {
            {{60, 180}, {120, 360}, {60, 180}},
            {{60.5, 180}, {90.5, 360}, {60.5, 180}},
            {{144, 300}, {50, 100}, {75, 100}},
            {{60.5, 600}},
    };
    for (const auto& display : kDisplays) {
        const auto measured = measureRefresh(vsyncsOf(display), [](auto...) { return false; });
        ASSERT_TRUE(measured && measured->changes.size() + 1 == display.size()) << display[0].first;
        double change = 0;
        for (size_t i = 0; i < display.size(); ++i) {
            const double period = 1e9 / std::floor(display[i].first);
            const int64_t at = std::llround(change);
            if (i > 0) {
                EXPECT_NEAR(measured->changes[i - 1].timeNs, at, 3 * period);
            }
            EXPECT_NEAR(measured->periodAt(at + 100'000'000), period, 50'000);
            change += period * display[i].second;
        }
    }
}

TEST(VsyncTrack, VsyncsLeftOut_AreNoOtherRate) {
    const auto ratesOf = [](std::vector<std::pair<double, int>> stretches, bool isFaster) {
        return measureRefresh(vsyncsOf(stretches), [=](auto...) { return isFaster; })
                ->changes.size();
    };
    EXPECT_EQ(ratesOf({{60, 180}, {30, 90}, {60, 180}}, false), 0u) << "no display has 30 Hz";
    EXPECT_EQ(ratesOf({{120, 180}, {60, 90}}, true), 0u) << "another counter shows them";
    EXPECT_EQ(ratesOf({{120, 180}, {60, 90}}, false), 1u);
}

TEST(VsyncTrack, Pauses_AreContinuedAtThePeriodFromStartToEnd) {
    EXPECT_EQ(continueVsyncs({25, 36, 75, 84}, Refresh{10, {}}, 0, 110),
              (Times{5, 15, 25, 36, 46, 56, 66, 75, 84, 94, 104}));
    EXPECT_EQ(continueVsyncs({}, Refresh{10, {}}, 0, 20), (Times{0, 10, 20}));
}

Capture vsyncCapture(const std::vector<std::pair<std::string, int>>& counters) {
    CaptureBuilder builder;
    builder.addCounter(0, kOldCounter, 0);
    builder.addCounter(20 * 16'667'000, kOldCounter, 1);
    for (const auto& [name, count] : counters) {
        for (int i = 0; i < count; ++i)
            builder.addCounter(i * 16'667'000 + name.size() * 1000, name, i % 2);
    }
    return builder.build("test");
}

TEST(VsyncTrack, Source_IsTheFirstCounterThatTells) {
    EXPECT_EQ(vsyncTrack(vsyncCapture({{"VSYNC-app", 20}, {"VSYNC-sf", 20}}), {}).source,
              "VSYNC-sf");
    EXPECT_EQ(vsyncTrack(vsyncCapture({{"VSYNC-app", 20}, {"VSYNC-sf", 4}}), {}).source,
              "VSYNC-app");
    EXPECT_EQ(vsyncTrack(vsyncCapture({{"HW_VSYNC_0", 20}, {"VSYNC-appSf", 20}}), {}).source,
              "VSYNC-appSf");
    Capture halfRate = vsyncCapture({{"VSYNC-sf", 20}, {"VSYNC-app", 20}});
    for (int64_t& timeNs : halfRate.vsyncs.at(1).timesNs) timeNs /= 2;
    EXPECT_EQ(vsyncTrack(halfRate, {}).periodNs, 8'333'500);
    EXPECT_EQ(vsyncTrack(halfRate, {}).source, "VSYNC-sf, at the rate of VSYNC-app");
    const VsyncTrack track =
            vsyncTrack(vsyncCapture({{"HW_VSYNC_0", 10}, {"HW_VSYNC_ON_0", 15}}), {});
    EXPECT_EQ(track.source, "HW_VSYNC_0");
    EXPECT_EQ(track.periodNs, 16'667'000);
    EXPECT_EQ(track.timesNs.size(), 20u);
    EXPECT_EQ(track.continued, 10u);
}

TEST(VsyncTrack, Refresh_FillsInForTheCaptureAndMustNotContradictIt) {
    const Capture silent = vsyncCapture({{"HW_VSYNC_ON_0", 20}});
    EXPECT_NE(errorOf([&] { vsyncTrack(silent, {}); }).find("--refresh HZ"), std::string::npos);
    EXPECT_EQ(vsyncTrack(silent, 90.0).periodNs, 11'111'111);
    const Capture telling = vsyncCapture({{"VSYNC-sf", 20}});
    EXPECT_EQ(vsyncTrack(telling, 61.1).periodNs, 16'667'000);
    EXPECT_NE(errorOf([&] { vsyncTrack(telling, 61.3); }).find("60.00 Hz"), std::string::npos);
    EXPECT_NE(errorOf([&] { vsyncTrack(telling, 0.0); }).find("--refresh"), std::string::npos);
}

}  // namespace
}  // namespace replay
