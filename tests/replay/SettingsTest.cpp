// Property assignments from the command line, and the arithmetic behind the figures.

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "replay/base/Error.h"
#include "replay/base/Statistics.h"
#include "replay/play/Settings.h"
#include "tests/ErrorOf.h"

namespace replay {
namespace {

TEST(Settings, Assignments_AreCheckedAgainstTypeAndRange) {
    Settings settings;
    for (const char* good :
         {"vendor.perf.phr.enable=0", "vendor.perf.phr.hr_min_rate=0.25",
          "ro.vendor.perf.zgpe=false", "vendor.perf.pfar2.boost_level=4",
          "vendor.perf.pfar2.hgpe.max_neboost=-45", "vendor.perf.pfar2.hgpe.max_rendertime=100"}) {
        EXPECT_NO_THROW(settings.set(good)) << good;
    }
    EXPECT_EQ(settings.properties().at("vendor.perf.phr.enable"), "0");
    EXPECT_EQ(settings.properties().at("vendor.perf.phr.hr_min_rate"), "0.25");
    const std::pair<std::string, const char*> kBad[] = {
            {"vendor.perf.phr.enabled=1", "did you mean vendor.perf.phr.enable?"},
            {"vendor.perf.pfar2.boostlevel=1", "did you mean vendor.perf.pfar2.boost_level?"},
            {"vendor.perf.phr.enable=on", "0 or 1"},
            {"vendor.perf.phr.enable=2", "0 or 1"},
            {"vendor.perf.pfar2.boost_level=5", "whole number from 0 to 4"},
            {"vendor.perf.pfar2.boost_level=1.5", "whole number from 0 to 4"},
            {"vendor.perf.pfar2.hgpe.max_neboost=30", "whole number from -100 to 0"},
            {"vendor.perf.phr.hr_min_rate=half", "number from 0 to 1"},
            {"vendor.perf.phr.hr_min_rate=nan", "number from 0 to 1"},
            {"ro.vendor.perf.zgpe=True", "true or false"},
            {"vendor.perf.phr.enable", "PROPERTY=VALUE"},
            {"=1", "PROPERTY=VALUE"},
    };
    for (const auto& bad : kBad) {
        EXPECT_NE(errorOf([&] { settings.set(bad.first); }).find(bad.second), std::string::npos)
                << bad.first;
    }
}

TEST(Statistics, OnTimes_EndWhenTheyLapseAreSwitchedOffOrRenewed) {
    OnTimes times;
    times.onFor(10, 5);   // lapses at 15
    times.onFor(20, 10);  // renewed at 25
    times.onFor(25, 10);
    times.off(30);
    times.off(40);
    times.on(50);
    times.finish(60);
    EXPECT_EQ(times.spans(),
              (std::vector<std::pair<int64_t, int64_t>>{{10, 15}, {20, 30}, {50, 60}}));
    EXPECT_EQ(times.totalNs(), 25);
    EXPECT_EQ(percentile({5, 1, 4, 2, 3}, 50), 3);
    EXPECT_EQ(percentile({5, 1, 4, 2, 3}, 99), 5);
}

}  // namespace
}  // namespace replay
