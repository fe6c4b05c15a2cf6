#include "replay/findings/Never.h"

#include <algorithm>
#include <cmath>

#include "replay/base/Statistics.h"
#include "replay/base/Text.h"
#include "tracker/FrameRules.h"
#include "tracker/PowerOptimizationRules.h"

namespace replay {

namespace {

namespace rules = android::cindral;

// The library's own rule for the headroom regulator.
constexpr int kBuffersAhead = 31;

class Reasons {
  public:
    Reasons(Findings& findings, const Run& run) : mFindings(findings), mRun(run) {}

    void write() {
        const std::string rate = rateReason();
        Never& never = mFindings.never;
        const bool decided = isDecided("[GFAR:1]") || isDecided("[PHR:1]");
        if (!mFindings.environmentNs && !decided) never.environment = undecided();
        if (!mFindings.environmentNs && decided && mFindings.debugSeen) never.environment = rate;
        if (mFindings.frameRegulator.spans.empty()) never.frameRegulator = frameRegulator(rate);
        if (mFindings.headroomRegulator.spans.empty()) never.headroomRegulator = headroom(rate);
        if (mFindings.negativeBoosts.empty()) never.negativeBoost = negativeBoost();
        if (mFindings.plOff.empty()) never.plOff = powerStep("vendor.perf.pfar2.disable_pl");
        if (mFindings.coreControlOff.empty()) {
            never.coreControlOff = powerStep("vendor.perf.pfar2.disable_core_ctl");
        }
    }

  private:
    std::string frameRegulator(const std::string& rate) const {
        if (!isDecided("[GFAR:1]")) return undecided();
        return mFindings.debugSeen ? rate : "";
    }

    std::string headroom(const std::string& rate) const {
        if (!isDecided("[PHR:1]")) return undecided();
        if (!mFindings.debugSeen) return "";
        if (!mFindings.environmentNs) return rate;
        const int most = mostAhead();
        if (most < kBuffersAhead) {
            return format("no %d buffers in a row left others pending, at most %d", kBuffersAhead,
                          most);
        }
        return format(
                "%d buffers in a row left others pending only while the measured rate was not the "
                "display's",
                kBuffersAhead);
    }

    std::string negativeBoost() const {
        const std::string common = withoutFrameRegulator();
        if (!common.empty()) return common;
        const std::string off = switchedOff("vendor.perf.pfar2.hgpe.enable");
        if (!off.empty()) return off;
        return "no frame took less than the target, the fastest took " + msText(fastestNs());
    }

    int64_t fastestNs() const {
        int64_t fastestNs = INT64_MAX;
        for (const Frame& frame : mFindings.frames) {
            const bool counts =
                    frame.renderNs > 0 && isOn(mFindings.frameRegulator, frame.queuedNs);
            if (counts) fastestNs = std::min(fastestNs, frame.renderNs);
        }
        return fastestNs;
    }

    // Of power optimisation, which compares three measuring periods before with three after.
    std::string powerStep(const char* property) const {
        const std::string common = withoutFrameRegulator();
        if (!common.empty()) return common;
        const std::string off = switchedOff(property);
        if (!off.empty()) return off;
        if (valueOf("vendor.perf.pfar2.boost_level", "1") != "1") {
            return "vendor.perf.pfar2.boost_level is not 1";
        }
        return format("no %d measuring periods in a row kept the display's rate, at most %d",
                      rules::kSamplesPerPhase, std::min(mostKept(), rules::kSamplesPerPhase - 1));
    }

    std::string withoutFrameRegulator() const {
        if (!isDecided("[GFAR:1]")) return undecided();
        if (!mFindings.debugSeen) return kNotTold;
        return mFindings.frameRegulator.spans.empty() ? "the frame regulator was never on" : "";
    }

    // Why no measuring period closed with the display's rate.
    std::string rateReason() const {
        if (mFindings.measuredFps.empty()) {
            return "no measuring period closed, which takes over a second without a pause of "
                   "150 ms";
        }
        std::vector<int64_t> thousandths;
        for (const Sample& sample : mFindings.measuredFps) {
            thousandths.push_back(std::llround(sample.value * 1000));
        }
        const double fps = static_cast<double>(percentile(thousandths, 50)) / 1000;
        const int64_t periodNs = mFindings.refresh.periodAt(mFindings.measuredFps.back().timeNs);
        const int rate = rules::displayClassOf(periodNs);
        if (rate == 0) {
            return format("%.1f frames/s, and the display's %.1f Hz are in no rate class", fps,
                          toHertz(periodNs));
        }
        return format("%.1f frames/s, %s the display's %d", fps, shareText(fps, rate), rate);
    }

    static const char* shareText(double fps, int rate) {
        constexpr double kNearly = 0.05;
        const double share = rate / fps;
        if (std::abs(share - 2) < 2 * kNearly) return "half of";
        if (std::abs(share - 3) < 3 * kNearly) return "a third of";
        if (std::abs(share - 4) < 4 * kNearly) return "a quarter of";
        return "not";
    }

    int mostAhead() const {
        int most = 0;
        int now = 0;
        for (const FedEvent& event : mRun.fed) {
            if (event.kind != FedEvent::Kind::kConsume) continue;
            now = event.value >= 1 ? now + 1 : 0;
            most = std::max(most, now);
        }
        return most;
    }

    // Running ahead of the display counts as keeping its rate.
    int mostKept() const {
        int most = 0;
        int now = 0;
        for (const Sample& sample : mFindings.measuredFps) {
            const int rate = rules::displayClassOf(mFindings.refresh.periodAt(sample.timeNs));
            const bool matches = rules::frameRateClassOf(static_cast<float>(sample.value)) == rate;
            const bool kept = matches && (sample.value > rate - 1 ||
                                          isOn(mFindings.headroomRegulator, sample.timeNs));
            now = kept ? now + 1 : 0;
            most = std::max(most, now);
        }
        return most;
    }

    static bool isOn(const Regulator& regulator, int64_t timeNs) {
        return std::any_of(regulator.spans.begin(), regulator.spans.end(), [&](const auto& span) {
            return span.first <= timeNs && timeNs <= span.second;
        });
    }

    bool isDecided(const char* feature) const {
        return mFindings.decision.find(feature) != std::string::npos;
    }

    std::string undecided() const {
        return mFindings.decision.empty() ? "the library logged no decision"
                                          : "the library decided " + onOneLine(mFindings.decision);
    }

    std::string switchedOff(const char* property) const {
        const bool isOn = valueOf(property, "1") == "1";
        return isOn ? "" : std::string(property) + " is " + valueOf(property, "1");
    }

    // Of the device's properties only those that were set are known.
    std::string valueOf(const std::string& property, const std::string& usual) const {
        for (const auto& [name, value] : mFindings.conditions) {
            if (name == property) return value;
        }
        return usual;
    }

    static constexpr char kNotTold[] = "told only with vendor.perf.cindral.debug=1";

    Findings& mFindings;
    const Run& mRun;
};

}  // namespace

void addNever(Findings& findings, const Run& run) {
    if (findings.withLibrary) Reasons(findings, run).write();
}

}  // namespace replay
