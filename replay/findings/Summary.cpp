#include "replay/findings/Summary.h"

#include <algorithm>

#include "replay/base/Error.h"
#include "replay/base/Text.h"
#include "replay/findings/FrameFindings.h"
#include "replay/findings/FrameParts.h"
#include "tracker/FrameRules.h"

namespace replay {

namespace {

constexpr size_t kMaxSwitchesShown = 6;
constexpr size_t kMaxWorstShown = 3;

std::string describe(const Distribution& distribution) {
    return format("p50 %.3f ms, p95 %.3f ms, p99 %.3f ms, max %.3f ms", toMs(distribution.p50),
                  toMs(distribution.p95), toMs(distribution.p99), toMs(distribution.max));
}

std::string describe(const std::vector<LockSpan>& spans, int64_t totalNs) {
    const auto released = std::count_if(spans.begin(), spans.end(),
                                        [](const LockSpan& span) { return span.released; });
    return format("%.3f s, %zu x, %td given back", toSeconds(totalNs), spans.size(), released);
}

std::string describeRate(int64_t periodNs) {
    return format("%.3f Hz, %.6f ms", toHertz(periodNs), toMs(periodNs));
}

std::string describeClass(int64_t periodNs) {
    const int rate = android::cindral::displayClassOf(periodNs);
    return rate == 0 ? "in no rate class of the library" : format("class %d", rate);
}

class Writer {
  public:
    explicit Writer(const Findings& findings) : mFindings(findings) {}

    std::vector<SummaryRow> write() {
        captureSection();
        conditionsSection();
        mDoubt = doubtOf(mFindings);
        screenSection();
        frameSection();
        holdSection();
        if (!mFindings.withLibrary) return std::move(mRows);
        librarySection();
        boostSection();
        powerSection();
        return std::move(mRows);
    }

  private:
    void section(const std::string& name) { mRows.push_back({"", name, true}); }
    // A model that does not give back its capture says so beside whatever it claims.
    void row(const std::string& label, const std::string& value) {
        mRows.push_back({label, value + mDoubt, false});
    }
    void countRow(const std::string& label, size_t number) { row(label, format("%zu", number)); }

    void captureSection() {
        section("Capture");
        row("source", mFindings.source);
        row("layer", mFindings.layer);
        if (mFindings.capturedFrames > 0) {
            row("time 0", format("%.6f s on the capture's clock", toSeconds(mFindings.originNs)));
            row("duration", format("%.3f s", toSeconds(mFindings.durationNs)));
        }
        row("refresh", describeRefresh());
        for (const RateChange& change : mFindings.refresh.changes) {
            row("", format("from %.3f s ", toSeconds(change.timeNs)) +
                            describeRate(change.periodNs) + ", " + describeClass(change.periodNs));
        }
        if (mFindings.capturedFrames > 0) {
            row("buffers", format("%zu queued, %zu consumed", mFindings.capturedFrames,
                                  mFindings.capturedLatches) +
                                   describeReplaced());
        }
        if (!mFindings.damage.empty()) row("damage", mFindings.damage);
    }

    std::string describeReplaced() const {
        if (mFindings.capturedReplaced == 0) return "";
        return format(", %zu replaced before they were shown", mFindings.capturedReplaced);
    }

    std::string describeRefresh() const {
        const std::string continued =
                mFindings.continuedVsyncs == 0
                        ? ""
                        : format("; %zu vsyncs continued", mFindings.continuedVsyncs);
        return describeRate(mFindings.refresh.periodNs) +
               format(" (%s%s), ", mFindings.refreshSource.c_str(), continued.c_str()) +
               describeClass(mFindings.refresh.periodNs);
    }

    void conditionsSection() {
        if (mFindings.conditions.empty()) return;
        section("Conditions");
        for (const auto& [name, value] : mFindings.conditions) {
            // Properties are too long for a label.
            const bool isProperty = name.find('.') != std::string::npos;
            row(isProperty ? "property" : name, isProperty ? name + "=" + value : value);
        }
    }

    void librarySection() {
        section("Library");
        row("decision", mFindings.decision.empty() ? "none logged" : mFindings.decision);
        row("environment built", mFindings.environmentNs
                                         ? format("at %.3f s", toSeconds(*mFindings.environmentNs))
                                         : orNever(mFindings.never.environment, "never"));
        regulatorRows("frame regulator on", mFindings.frameRegulator,
                      mFindings.never.frameRegulator);
        regulatorRows("headroom regulator on", mFindings.headroomRegulator,
                      mFindings.never.headroomRegulator);
        if (!mFindings.headroomNs.empty()) row("headroom", describeHeadroom());
        if (!mFindings.errors.empty()) {
            row("errors logged", format("%zu, first ", mFindings.errors.size()) +
                                         inQuotes(mFindings.errors.front()));
        }
    }

    void regulatorRows(const std::string& label, const Regulator& regulator,
                       const std::string& never) {
        if (never.empty() && !mFindings.debugSeen) {
            return row(label, "not known, needs vendor.perf.cindral.debug=1");
        }
        row(label, orNever(never, format("%.3f s, %zu x", toSeconds(regulator.onNs),
                                         regulator.spans.size())));
        size_t shown = 0;
        for (const RegulatorSwitch& change : regulator.switches) {
            if (shown++ == kMaxSwitchesShown) {
                row("", format("... and %zu more, see --log",
                               regulator.switches.size() - kMaxSwitchesShown));
                return;
            }
            row("", format("%9.3f s %s: %s", toSeconds(change.timeNs), change.on ? "on " : "off",
                           change.reason.c_str()));
        }
    }

    std::string describeHeadroom() const {
        std::vector<int64_t> values;
        for (const Sample& sample : mFindings.headroomNs) {
            values.push_back(static_cast<int64_t>(sample.value));
        }
        const auto [least, most] = std::minmax_element(values.begin(), values.end());
        return format("%.3f ms at first, %.3f to %.3f ms, %zu steps", toMs(values.front()),
                      toMs(*least), toMs(*most), values.size() - 1);
    }

    void screenSection() {
        const Screen& screen = mFindings.screen;
        section(mFindings.modelled ? "What the player saw, modelled" : "What the player saw");
        if (screen.pictures == 0) return row("pictures", "none");
        row("shown in time", format("%zu of %zu frames, at the vsync they were meant for",
                                    screen.inTime, mFindings.frames.size()));
        row("old picture again", format("at %zu vsyncs", screen.repeated));
        row("lows",
            format("1 %%: %.2f/s, 0.1 %%: %.2f/s", screen.onePercentLow, screen.tenthPercentLow));
        row("animation error", format("mean %.3f ms, ", screen.animationErrorNs.mean() / 1e6) +
                                       describe(screen.animationErrorNs));
    }

    // What the game did on the device next to what it did here.
    void frameSection() {
        section("Frames");
        countRow("frames", mFindings.frames.size());
        row("late", format("%zu; by more than 1 vsync %zu, by more than 2 vsyncs %zu",
                           mFindings.late[0], mFindings.late[1], mFindings.late[2]));
        if (mFindings.late[0] > 0) row("late because", describeCauses(mFindings));
        if (!mFindings.phone.empty()) row("by the phone itself", describePhone());
        countRow("stutters", mFindings.stutters.size());
        row("frame time", describe(mFindings.frameTimeNs));
        if (mFindings.capturedFrames > 0) {
            row("as captured", describe(distributionOf(mFindings.capturedIntervalsNs)));
        }
        row("render time", describe(mFindings.renderTimeNs));
        row("queue to latch", describe(mFindings.latencyNs));
        row("worst", describeWorst());
        if (mFindings.zeroRenderTimes > 0) {
            row("came at once", format("%zu frames with no render time, as their thread was held "
                                       "beyond their captured time; see --model",
                                       mFindings.zeroRenderTimes));
        }
    }

    std::string describePhone() const {
        size_t missed = 0;
        for (const TimelineFrame& frame : mFindings.phone) missed += isMissed(frame) ? 1 : 0;
        const auto agrees = std::count_if(
                mFindings.frames.begin(), mFindings.frames.end(), [&](const Frame& frame) {
                    return frame.late && frame.phone != kNoFrame &&
                           isMissed(mFindings.phone[static_cast<size_t>(frame.phone)]);
                });
        return format("%zu of %zu not on time, %td of them late here", missed,
                      mFindings.phone.size(), agrees);
    }

    std::string describeWorst() const {
        std::string text;
        for (size_t i = 0; i < mFindings.worst.size() && i < kMaxWorstShown; ++i) {
            const int index = mFindings.worst[i];
            const Frame& frame = mFindings.frames[static_cast<size_t>(index)];
            text += format("%sframe %d at %.3f s: %.3f ms", i == 0 ? "" : ", ", index,
                           toSeconds(frame.queuedNs), toMs(frame.intervalNs));
        }
        return text;
    }

    void holdSection() {
        section("Queueing thread held");
        row("frames held", format("%zu of %zu", mFindings.framesHeld, mFindings.frames.size()));
        row("per frame", describe(mFindings.heldNs));
        row("total", format("%.3f s", toSeconds(mFindings.heldNs.total)));
        size_t late = 0;
        int64_t worstNs = 0;
        for (const Frame& frame : mFindings.frames) {
            if (frame.delayNs() <= 0) continue;
            ++late;
            worstNs = std::max(worstNs, frame.delayNs());
        }
        if (late > 0) row("delivered late", format("%zu, by up to %.3f ms", late, toMs(worstNs)));
    }

    void boostSection() {
        section("Boosts");
        for (size_t i = 0; i < mFindings.boostsByCheckpoint.size(); ++i) {
            countRow(format("checkpoint %zu", i + 1), mFindings.boostsByCheckpoint[i]);
        }
        row("time boosted", format("%.3f s", toSeconds(mFindings.boostedNs)));
        countRow("releases", mFindings.releases.size());
        row("never released", format("%zu, of which %zu long ones", mFindings.boostsNeverReleased,
                                     mFindings.longBoostsNeverReleased));
        if (mFindings.unknownCalls > 0) countRow("unknown calls", mFindings.unknownCalls);
    }

    void powerSection() {
        section("Power");
        countRow("negative boosts", mFindings.negativeBoosts.size());
        countRow("negative releases", mFindings.negativeReleases.size());
        row("time lowered",
            orNever(mFindings.never.negativeBoost,
                    format("%.3f s, mean strength %.1f %%", toSeconds(mFindings.loweredNs),
                           mFindings.meanStrength)));
        row("PL off", orNever(mFindings.never.plOff, describe(mFindings.plOff, mFindings.plOffNs)));
        row("core control off",
            orNever(mFindings.never.coreControlOff,
                    describe(mFindings.coreControlOff, mFindings.coreControlOffNs)));
        if (mFindings.debugSeen) countRow("ping-pongs", mFindings.pingpongs.size());
    }

    static std::string orNever(const std::string& never, const std::string& value) {
        return never.empty() ? value : "never: " + never;
    }

    const Findings& mFindings;
    std::vector<SummaryRow> mRows;
    std::string mDoubt;  // beside what the model claims, if it misses the capture
};

}  // namespace

std::vector<SummaryRow> summarize(const Findings& findings) {
    return Writer(findings).write();
}

void writeSummary(std::ostream& out, const std::vector<SummaryRow>& rows, bool forTerminal) {
    for (const SummaryRow& row : rows) {
        if (row.isSection) {
            out << (&row == &rows.front() ? "" : "\n") << (forTerminal ? "\x1b[1m" : "")
                << row.value << (forTerminal ? "\x1b[0m" : "") << '\n';
        } else {
            out << format("  %-24s", row.label.c_str()) << row.value << '\n';
        }
    }
}

}  // namespace replay
