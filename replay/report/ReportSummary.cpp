#include "replay/report/ReportSummary.h"

#include <algorithm>
#include <cmath>
#include <functional>

#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/findings/FrameParts.h"
#include "replay/findings/Ranking.h"
#include "replay/report/Html.h"
#include "tracker/FrameRules.h"

namespace replay {

namespace {

constexpr char kNone[] = "none";
constexpr double kLeastShownChange = 0.005;  // half of the last digit that is shown

double percentOf(double part, double whole) {
    return whole > 0 ? 100 * part / whole : 0;
}

std::string shareOfRun(int64_t ns, const Findings& findings) {
    if (ns == 0) return "never";
    const double share = percentOf(static_cast<double>(ns), static_cast<double>(findings.endNs));
    const std::string rounded = share < 0.5 ? "less than 1" : format("%.0f", share);
    return format("%.2f s (%s %% of the run)", toSeconds(ns), rounded.c_str());
}

constexpr char kSpread[] = "median / 99 % / most";

std::string spread(const Distribution& values) {
    if (values.count == 0) return "nothing measured";
    return format("%.2f / %.2f / %.2f ms", toMs(values.p50), toMs(values.p99), toMs(values.max));
}

std::string lateFrames(const Findings& f) {
    if (f.late[0] == 0) return format("none of %zu", f.frames.size());
    std::string text =
            format("%zu of %zu (%.1f %%)", f.late[0], f.frames.size(),
                   percentOf(static_cast<double>(f.late[0]), static_cast<double>(f.frames.size())));
    if (f.late[1] > 0) text += format(", %zu by over 1 vsync", f.late[1]);
    if (f.late[2] > 0) text += format(", %zu by over 2", f.late[2]);
    return text;
}

std::string causes(const Findings& f) {
    return f.late[0] == 0 ? kNone : describeCauses(f);
}

std::string stutters(const Findings& f) {
    return f.stutters.empty() ? kNone : format("%zu", f.stutters.size());
}

std::string framesHeld(const Findings& f) {
    if (f.framesHeld == 0) return kNone;
    return format("%zu of %zu, %.2f s in all", f.framesHeld, f.frames.size(),
                  toSeconds(f.heldNs.total));
}

std::string replaced(const Findings& f) {
    return f.capturedReplaced == 0
                   ? ""
                   : format(", %zu buffers replaced before they were shown", f.capturedReplaced);
}

std::string boosts(const Findings& f) {
    if (f.boosts.empty()) return kNone;
    return format("%zu / %zu / %zu, %.2f s in force, %zu taken back", f.boostsByCheckpoint[0],
                  f.boostsByCheckpoint[1], f.boostsByCheckpoint[2], toSeconds(f.boostedNs),
                  f.releases.size());
}

std::string orNever(const std::string& never, const std::string& value) {
    return never.empty() ? value : "never: " + never;
}

std::string lowered(const Findings& f) {
    if (f.negativeBoosts.empty()) return orNever(f.never.negativeBoost, "never");
    return shareOfRun(f.loweredNs, f) + format(", by %.1f %%", f.meanStrength);
}

std::string regulator(const Findings& f, const Regulator& regulator, const std::string& never) {
    if (!f.withLibrary) return "no library";
    if (!never.empty()) return "never: " + never;
    if (!f.debugSeen) return "not told without the debug switch";
    return shareOfRun(regulator.onNs, f) + format(", switched on %zu x", regulator.spans.size());
}

struct Line {
    const char* question;
    const char* figure;  // says whether another run did better; may be empty
    std::function<std::string(const Findings&)> answer;
    const char* detail = "";
};

std::string shownInTime(const Findings& f) {
    if (f.screen.pictures == 0) return "no picture";
    return format(
            "%zu of %zu frames (%.1f %%)", f.screen.inTime, f.frames.size(),
            percentOf(static_cast<double>(f.screen.inTime), static_cast<double>(f.frames.size())));
}

std::string lows(const Findings& f) {
    return format("%.1f / %.1f pictures a second", f.screen.onePercentLow,
                  f.screen.tenthPercentLow);
}

std::string model(const Findings& f) {
    if (!f.reproduction) return "not of a captured game";
    return (f.reproduction->holds() ? "gives back the capture: " : "misses the capture: ") +
           f.reproduction->describe();
}

const Line kLines[] = {
        {"Model without library", "", model},
        {"Shown at the vsync they were meant for", "shown_in_time_percent", shownInTime},
        {"Old picture shown again", "repeated_vsyncs",
         [](const auto& f) { return format("at %zu vsyncs", f.screen.repeated); }},
        {"Lows", "low_1_percent_fps", lows, "slowest 1 % / 0.1 %"},
        {"Animation error", "animation_error_mean_ms",
         [](const auto& f) { return spread(f.screen.animationErrorNs); }, kSpread},
        {"Late frames", "late_frames", lateFrames},
        {"Late because", "", causes},
        {"Stutters on the screen", "stutters", stutters},
        {"Frame time", "frame_time_p99_ms", [](const auto& f) { return spread(f.frameTimeNs); },
         kSpread},
        {"From queue to latch", "latency_p50_ms", [](const auto& f) { return spread(f.latencyNs); },
         kSpread},
        {"Frames held", "", framesHeld},
        {"Time held", "", [](const auto& f) { return spread(f.heldNs); }, kSpread},
        {"Boosts", "boosted_s", boosts, "checkpoint 1 / 2 / 3"},
        {"Clocks lowered", "negative_s", lowered},
        {"PL off", "pl_off_s",
         [](const auto& f) { return orNever(f.never.plOff, shareOfRun(f.plOffNs, f)); }},
        {"Core control off", "core_control_off_s",
         [](const auto& f) {
             return orNever(f.never.coreControlOff, shareOfRun(f.coreControlOffNs, f));
         }},
        {"Frame regulator", "",
         [](const auto& f) { return regulator(f, f.frameRegulator, f.never.frameRegulator); }},
        {"Headroom regulator", "",
         [](const auto& f) {
             return regulator(f, f.headroomRegulator, f.never.headroomRegulator);
         }},
};

// What a model claims that misses its capture is marked wherever it stands.
std::string answerOf(const Line& line, const Findings& findings) {
    return line.answer(findings) + doubtOf(findings);
}

std::vector<std::vector<double>> valuesOfAll(const std::vector<ReportRun>& runs) {
    std::vector<std::vector<double>> values;
    for (const ReportRun& run : runs) values.push_back(valuesOf(*run.findings));
    return values;
}

// Long names break where people would break them.
std::string breakable(const std::string& escaped) {
    std::string result;
    for (const char c : escaped) {
        if (c == '[') result += "<wbr>";
        result += c;
        if (c == '/' || c == ']') result += "<wbr>";
    }
    return result;
}

class Writer {
  public:
    Writer(std::ostream& out, const std::vector<ReportRun>& runs)
          : mOut(out), mRuns(runs), mValues(valuesOfAll(runs)), mRanked(rankedFigures(mValues)) {}

    void write() {
        const Findings& first = *mRuns.front().findings;
        mOut << "<h1>Replay of " << breakable(escapeHtml(first.layer)) << modelledMark(first)
             << "</h1>\n";
        mOut << "<p class=\"quiet\">" << breakable(escapeHtml(describeInput(first))) << "</p>\n";
        notes();
        if (isComparison()) {
            comparison();
        } else {
            list(first);
        }
        details();
    }

  private:
    bool isComparison() const { return mRuns.size() > 1; }

    // Wherever a figure of such a run stands, nobody should take it for what a device showed.
    static const char* modelledMark(const Findings& f) {
        return f.modelled ? " <span class=\"modelled\">modelled</span>" : "";
    }

    static std::string describeInput(const Findings& f) {
        // A workload has no length of its own.
        const std::string captured =
                f.durationNs > 0 ? format("%.2f s, ", toSeconds(f.durationNs)) : "";
        std::string text = format("%s: %s%zu frames, display at %.2f Hz (a vsync every %.2f ms)",
                                  f.source.c_str(), captured.c_str(), f.frames.size(),
                                  toHertz(f.refresh.periodNs), toMs(f.refresh.periodNs));
        for (const RateChange& change : f.refresh.changes) {
            text += format(", from %.2f s at %.2f Hz", toSeconds(change.timeNs),
                           toHertz(change.periodNs));
            if (android::cindral::displayClassOf(change.periodNs) == 0)
                text += ", which the library does not serve";
        }
        return text + replaced(f);
    }

    // What the reader should know before believing a figure.
    void notes() {
        const std::string& damage = mRuns.front().findings->damage;
        if (!damage.empty()) note(damage);
        noteZeroRenderTimes();
        for (const ReportRun& run : mRuns) {
            const std::string label = isComparison() ? run.label + " logged: " : "Logged: ";
            for (const std::string& error : run.findings->errors) note(label + error);
        }
    }

    void noteZeroRenderTimes() {
        std::string counts;
        for (const ReportRun& run : mRuns) {
            if (run.findings->zeroRenderTimes == 0) continue;
            counts += (counts.empty() ? "" : ", ") + (isComparison() ? run.label + ": " : "") +
                      format("%zu frames", run.findings->zeroRenderTimes);
        }
        if (counts.empty()) return;
        mOut << "<p class=\"note\">Came at once, because their thread was held past the captured "
                "moment: "
             << escapeHtml(counts)
             << ". With <span class=\"option\">--model</span> the game reacts to being held.</p>\n";
    }

    void note(const std::string& text) {
        mOut << "<p class=\"note\">" << escapeHtml(text) << "</p>\n";
    }

    static std::string nameOf(const Line& line) {
        const std::string name = escapeHtml(line.question);
        if (*line.detail == '\0') return name;
        return name + " <span class=\"detail\">" + escapeHtml(line.detail) + "</span>";
    }

    // One run needs no columns, and the charts come sooner without.
    void list(const Findings& findings) {
        mOut << "<dl id=\"summary\">\n";
        for (const Line& line : kLines) {
            mOut << "<div><dt>" << nameOf(line) << "</dt><dd>"
                 << escapeHtml(answerOf(line, findings)) << "</dd></div>\n";
        }
        mOut << "</dl>\n";
    }

    void comparison() {
        mOut << "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Summary\">\n"
                "<table id=\"summary\">\n";
        heading("How it went");
        for (const Line& line : kLines) {
            row(nameOf(line), [&](size_t run) {
                return escapeHtml(answerOf(line, *mRuns[run].findings)) + verdict(line, run);
            });
        }
        mOut << "</tbody></table></div>\n";
    }

    std::string verdict(const Line& line, size_t run) const {
        if (*line.figure == '\0') return "";
        const size_t index = figureNamed(line.figure);
        return mark(trendOf(regression(index, mValues[0][index], mValues[run][index])));
    }

    // In words too: colours alone are not for everybody.
    static std::string mark(Trend trend) {
        if (trend == Trend::kNeither) return "";
        const std::string word = toString(trend);
        return " <span class=\"" + word + "\">" + word + "</span>";
    }

    void heading(const std::string& caption) {
        mOut << "<caption>" << caption << "</caption>\n<thead><tr><td></td>";
        for (const ReportRun& run : mRuns) {
            mOut << "<th scope=\"col\">" << escapeHtml(run.label) << modelledMark(*run.findings)
                 << "</th>";
        }
        mOut << "</tr></thead><tbody>\n";
    }

    template <typename Cell>
    void row(const std::string& name, Cell&& cell) {
        mOut << "<tr><th scope=\"row\">" << name << "</th>";
        for (size_t run = 0; run < mRuns.size(); ++run) mOut << "<td>" << cell(run) << "</td>";
        mOut << "</tr>\n";
    }

    void details() {
        mOut << "<details><summary>Every figure, and the conditions</summary>\n"
                "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Figures\">\n";
        if (isComparison()) rankedTable();
        mOut << "<table>\n";
        heading("Conditions");
        for (const std::string& name : conditionNames()) {
            row(escapeHtml(name), [&](size_t run) { return condition(run, name); });
        }
        mOut << "</tbody></table>\n<table id=\"all-figures\">\n";
        heading(isComparison() ? "Figures that are the same in all" : "Figures");
        for (size_t i = 0; i < figures().size(); ++i) {
            if (!isRanked(i)) figureRow(i);
        }
        mOut << "</tbody></table></div></details>\n";
    }

    void rankedTable() {
        mOut << "<table id=\"changes\">\n";
        heading("Differences from the first, the worst regressions first");
        for (const RankedFigure& ranked : mRanked) figureRow(ranked.figure);
        mOut << "</tbody></table>\n";
    }

    bool isRanked(size_t figure) const {
        return std::any_of(mRanked.begin(), mRanked.end(),
                           [&](const RankedFigure& ranked) { return ranked.figure == figure; });
    }

    // Of all runs: a comparison may set what the others leave alone.
    std::vector<std::string> conditionNames() const {
        std::vector<std::string> names;
        for (const ReportRun& run : mRuns) {
            for (const auto& [name, value] : run.findings->conditions) {
                if (std::find(names.begin(), names.end(), name) == names.end()) {
                    names.push_back(name);
                }
            }
        }
        return names;
    }

    std::string condition(size_t run, const std::string& name) const {
        for (const auto& [key, value] : mRuns[run].findings->conditions) {
            if (key == name) return escapeHtml(value);
        }
        return "&ndash;";
    }

    void figureRow(size_t index) {
        row(escapeHtml(figures()[index].label), [&](size_t run) { return value(index, run); });
    }

    std::string value(size_t index, size_t run) const {
        const Figure& figure = figures()[index];
        const double number = mValues[run][index];
        if (std::isnan(number)) return "not known";
        const int decimals = figure.isCount() ? 0 : 2;
        const std::string text = format("%.*f %s", decimals, number, figure.unit);
        const double change = number - mValues[0][index];
        if (run == 0 || std::isnan(change) || std::fabs(change) < kLeastShownChange) return text;
        const Trend trend = trendOf(regression(index, mValues[0][index], number));
        return text + format(" <span class=\"change\">%+.*f</span>", decimals, change) +
               mark(trend);
    }

    std::ostream& mOut;
    const std::vector<ReportRun>& mRuns;
    const std::vector<std::vector<double>> mValues;  // by run and figures()
    const std::vector<RankedFigure> mRanked;
};

}  // namespace

void writeReportSummary(std::ostream& out, const std::vector<ReportRun>& runs) {
    if (!runs.empty()) Writer(out, runs).write();
}

}  // namespace replay
