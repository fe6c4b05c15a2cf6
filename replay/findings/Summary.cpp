#include "replay/findings/Summary.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <numeric>

#include "replay/Error.h"
#include "replay/findings/Effects.h"
#include "replay/findings/Statistics.h"

namespace replay {

namespace {

constexpr double kNsPerMs = 1e6;
constexpr double kNsPerSecond = 1e9;
constexpr size_t kMaxSpansShown = 4;
constexpr int kMissedOneHalfPeriods = 3;
constexpr int kMissedTwoHalfPeriods = 5;
// Below this a call took its time, but was not held.
constexpr int64_t kMinHoldNs = 100'000;

__attribute__((format(printf, 1, 2))) std::string format(const char* pattern, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, pattern);
    std::vsnprintf(text, sizeof(text), pattern, arguments);
    va_end(arguments);
    return text;
}

double toMs(int64_t ns) {
    return static_cast<double>(ns) / kNsPerMs;
}
double toSeconds(int64_t ns) {
    return static_cast<double>(ns) / kNsPerSecond;
}

// "2 times, 9.100 s in all: 1.2-5.3 s, 6.0-11.0 s"
std::string describeSpans(const OnTimes& times) {
    const auto& spans = times.spans();
    if (spans.empty()) return "never";
    std::string text = format("%zu x, %.3f s in all:", spans.size(), toSeconds(times.totalNs()));
    for (size_t i = 0; i < spans.size() && i < kMaxSpansShown; ++i) {
        text += format("%s %.3f to %.3f", i == 0 ? "" : ",", toSeconds(spans[i].first),
                       toSeconds(spans[i].second));
    }
    return text + (spans.size() > kMaxSpansShown ? ", ..." : "");
}

std::string describeRegulator(const Effects& effects, const OnTimes& times) {
    return effects.debugSeen ? describeSpans(times)
                             : "not known, needs vendor.perf.cindral.debug=1";
}

std::string describeLock(const Effects::Lock& lock) {
    return format("%zu acquired, %zu released, %.3f s held", lock.acquired, lock.released,
                  toSeconds(lock.held.totalNs()));
}

class Writer {
  public:
    Writer(const Capture& capture, const LayerEvents& layer, const VsyncTrack& vsyncs,
           const Run& run)
          : mCapture(capture), mLayer(layer), mVsyncs(vsyncs), mRun(run), mEffects(effectsOf(run)) {
        for (const FedEvent& event : run.fed) {
            if (event.kind == FedEvent::Kind::kQueue) mQueued.push_back(event);
        }
    }

    std::vector<SummaryRow> write() {
        captureSection();
        librarySection();
        frameSection();
        holdSection();
        boostSection();
        powerSection();
        return std::move(mRows);
    }

  private:
    void section(const std::string& name) { mRows.push_back({"", name}); }
    void row(const std::string& label, const std::string& value) {
        mRows.push_back({label, value});
    }

    void captureSection() {
        section("Capture");
        row("source", mCapture.source);
        row("layer", mLayer.name.layer);
        row("time 0", format("%.6f s on the capture's clock", toSeconds(mCapture.originNs)));
        row("duration", format("%.3f s", toSeconds(mCapture.durationNs)));
        row("refresh", describeRefresh());
        row("buffers",
            format("%zu queued, %zu consumed", mLayer.queueTimesNs.size(), mLayer.consumes.size()));
        const std::string damage = describeDamage();
        if (!damage.empty()) row("damage", damage);
    }

    std::string describeRefresh() const {
        const int rateClass = displayRateClass(mVsyncs.periodNs);
        return format("%.3f Hz, %.6f ms (%s; %zu of %zu vsyncs continued), ",
                      1e9 / static_cast<double>(mVsyncs.periodNs), toMs(mVsyncs.periodNs),
                      mVsyncs.source.c_str(), mVsyncs.continued, mVsyncs.timesNs.size()) +
               (rateClass == 0 ? "in no rate class of the library" : format("class %d", rateClass));
    }

    std::string describeDamage() const {
        std::string text;
        const auto add = [&](const std::string& what) {
            text += (text.empty() ? "" : "; ") + what;
        };
        if (mCapture.lostEvents > 0) {
            add(format("%llu events lost by the kernel",
                       static_cast<unsigned long long>(mCapture.lostEvents)));
        }
        if (mCapture.outOfOrder > 0) {
            add(format("%llu lines out of order, sorted",
                       static_cast<unsigned long long>(mCapture.outOfOrder)));
        }
        if (mCapture.lastLineCutOff) add("last line cut off, ignored");
        return text;
    }

    void librarySection() {
        section("Library");
        row("decision", mEffects.decision.empty() ? "none logged" : mEffects.decision);
        row("environment built", mEffects.environmentNs
                                         ? format("at %.3f s", toSeconds(*mEffects.environmentNs))
                                         : "never");
        row("frame regulator on", describeRegulator(mEffects, mEffects.frameRegulator));
        row("headroom regulator on", describeRegulator(mEffects, mEffects.headroomRegulator));
        if (!mEffects.errors.empty()) {
            row("errors logged",
                format("%zu, first ", mEffects.errors.size()) + inQuotes(mEffects.errors.front()));
        }
    }

    // What the game did on the device next to what it did when the library held it.
    void frameSection() {
        const std::vector<int64_t> captured = differences(mLayer.queueTimesNs);
        std::vector<int64_t> returnTimes;
        for (const FedEvent& event : mQueued) returnTimes.push_back(event.returnedNs);
        const std::vector<int64_t> paced = differences(returnTimes);
        section("Frame intervals           as captured      as paced");
        for (const int percent : {50, 95, 99, 100}) {
            row(percent == 100 ? "max" : format("p%d", percent),
                format("%11.3f ms %10.3f ms", toMs(percentile(captured, percent)),
                       toMs(percentile(paced, percent))));
        }
        row("one vsync late or more", countRow(captured, paced, kMissedOneHalfPeriods));
        row("two vsyncs late or more", countRow(captured, paced, kMissedTwoHalfPeriods));
    }

    std::string countRow(const std::vector<int64_t>& captured, const std::vector<int64_t>& paced,
                         int halfPeriods) const {
        return format("%11zu    %10zu", countLonger(captured, mVsyncs.periodNs, halfPeriods),
                      countLonger(paced, mVsyncs.periodNs, halfPeriods));
    }

    void holdSection() {
        std::vector<int64_t> holds;
        for (const FedEvent& event : mQueued) holds.push_back(event.heldNs());
        const auto held = std::count_if(holds.begin(), holds.end(),
                                        [](int64_t ns) { return ns >= kMinHoldNs; });
        const int64_t total = std::accumulate(holds.begin(), holds.end(), int64_t{0});
        section("Queueing thread held");
        row("buffers held", format("%td of %zu", held, holds.size()));
        row("per buffer", format("p50 %.3f ms, p95 %.3f ms, p99 %.3f ms, max %.3f ms",
                                 toMs(percentile(holds, 50)), toMs(percentile(holds, 95)),
                                 toMs(percentile(holds, 99)), toMs(percentile(holds, 100))));
        row("total", format("%.3f s", toSeconds(total)));
        row("delivered late", describeLate());
    }

    // Calls that the compositor made later than captured because their thread was still in the
    // library.
    std::string describeLate() const {
        std::string text;
        for (const FedEvent::Kind kind :
             {FedEvent::Kind::kQueue, FedEvent::Kind::kConsume, FedEvent::Kind::kVsync}) {
            size_t count = 0;
            int64_t worst = 0;
            for (const FedEvent& event : mRun.fed) {
                if (event.kind != kind || event.lateNs() <= 0) continue;
                ++count;
                worst = std::max(worst, event.lateNs());
            }
            text += std::string(text.empty() ? "" : ", ") + toString(kind) + format(" %zu", count);
            if (count > 0) text += format(" (by up to %.3f ms)", toMs(worst));
        }
        return text;
    }

    void boostSection() {
        section("Boosts");
        for (size_t i = 0; i < mEffects.boosts.size(); ++i) {
            row(format("checkpoint %zu", i + 1), format("%zu", mEffects.boosts[i]));
        }
        row("releases", format("%zu", mEffects.releases));
        row("time boosted", format("%.3f s", toSeconds(mEffects.boosted.totalNs())));
        if (mEffects.unknownHints > 0) row("unknown hints", format("%zu", mEffects.unknownHints));
    }

    void powerSection() {
        const std::vector<int>& strengths = mEffects.negativeBoosts;
        section("Power");
        row("negative boosts", strengths.empty() ? "none" : describeStrengths(strengths));
        row("negative releases", format("%zu", mEffects.negativeReleases));
        row("time lowered", format("%.3f s", toSeconds(mEffects.lowered.totalNs())));
        row("PL off", describeLock(mEffects.pl));
        row("core control off", describeLock(mEffects.coreControl));
    }

    static std::string describeStrengths(const std::vector<int>& strengths) {
        const double sum = std::accumulate(strengths.begin(), strengths.end(), 0.0);
        return format("%zu, strongest %d, mean %.1f", strengths.size(),
                      *std::max_element(strengths.begin(), strengths.end()),
                      sum / static_cast<double>(strengths.size()));
    }

    const Capture& mCapture;
    const LayerEvents& mLayer;
    const VsyncTrack& mVsyncs;
    const Run& mRun;
    const Effects mEffects;
    std::vector<FedEvent> mQueued;
    std::vector<SummaryRow> mRows;
};

}  // namespace

std::vector<SummaryRow> summarize(const Capture& capture, const LayerEvents& layer,
                                  const VsyncTrack& vsyncs, const Run& run) {
    return Writer(capture, layer, vsyncs, run).write();
}

void writeSummary(std::ostream& out, const std::vector<SummaryRow>& rows) {
    for (const SummaryRow& row : rows) {
        if (row.label.empty()) {
            out << (&row == &rows.front() ? "" : "\n") << row.value << '\n';
        } else {
            out << format("  %-24s", row.label.c_str()) << row.value << '\n';
        }
    }
}

}  // namespace replay
