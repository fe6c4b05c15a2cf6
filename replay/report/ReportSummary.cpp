#include "replay/report/ReportSummary.h"

#include <cmath>
#include <functional>

#include "replay/findings/Figures.h"
#include "replay/findings/Format.h"
#include "replay/report/Html.h"

namespace replay {

namespace {

constexpr char kNone[] = "none";

double percentOf(double part, double whole) {
    return whole > 0 ? 100 * part / whole : 0;
}

std::string shareOfRun(int64_t ns, const Findings& findings) {
    if (ns == 0) return "never";
    return format("%.2f s (%.0f %% of the run)", toSeconds(ns),
                  percentOf(static_cast<double>(ns), static_cast<double>(findings.durationNs)));
}

std::string spread(const Distribution& values) {
    if (values.count == 0) return "nothing measured";
    return format("%.2f ms median, %.2f ms at 99 %%, %.2f ms at most", toMs(values.p50),
                  toMs(values.p99), toMs(values.max));
}

std::string lateFrames(const Findings& f) {
    if (f.late[0] == 0) return format("none of %zu", f.frames.size());
    return format("%zu of %zu (%.1f %%); %zu by more than one vsync, %zu by more than two",
                  f.late[0], f.frames.size(),
                  percentOf(static_cast<double>(f.late[0]), static_cast<double>(f.frames.size())),
                  f.late[1], f.late[2]);
}

std::string held(const Findings& f) {
    if (f.framesHeld == 0) return "never";
    return format("%zu of %zu frames: ", f.framesHeld, f.frames.size()) + spread(f.heldNs) +
           format("; %.2f s in all", toSeconds(f.heldNs.total));
}

std::string boosts(const Findings& f) {
    if (f.boosts.empty()) return kNone;
    return format("%zu: %zu mild, %zu stronger, %zu long; %.2f s in force, %zu taken back",
                  f.boosts.size(), f.boostsByCheckpoint[0], f.boostsByCheckpoint[1],
                  f.boostsByCheckpoint[2], toSeconds(f.boostedNs), f.releases.size());
}

std::string lowered(const Findings& f) {
    if (f.negativeBoosts.empty()) return "never";
    return shareOfRun(f.loweredNs, f) + format(", mean strength %.1f %%", f.meanStrength);
}

std::string regulator(const Findings& f, const Regulator& regulator) {
    if (!f.withLibrary) return "no library";
    if (!f.debugSeen) return "not told without the debug switch";
    if (regulator.spans.empty()) return "never on";
    return shareOfRun(regulator.onNs, f) + format(", switched on %zu x", regulator.spans.size());
}

struct Line {
    const char* question;
    std::function<std::string(const Findings&)> answer;
};

const Line kLines[] = {
        {"Late frames", lateFrames},
        {"Stutters on the screen",
         [](const Findings& f) {
             return f.stutters.empty() ? kNone : format("%zu", f.stutters.size());
         }},
        {"Frame time", [](const Findings& f) { return spread(f.frameTimeNs); }},
        {"From queue to latch", [](const Findings& f) { return spread(f.latencyNs); }},
        {"Game held", held},
        {"Boosts", boosts},
        {"Clocks lowered", lowered},
        {"PL off", [](const Findings& f) { return shareOfRun(f.plOffNs, f); }},
        {"Core control off", [](const Findings& f) { return shareOfRun(f.coreControlOffNs, f); }},
        {"Frame regulator", [](const Findings& f) { return regulator(f, f.frameRegulator); }},
        {"Headroom regulator", [](const Findings& f) { return regulator(f, f.headroomRegulator); }},
};

class Writer {
  public:
    Writer(std::ostream& out, const std::vector<ReportRun>& runs) : mOut(out), mRuns(runs) {}

    void write() {
        const Findings& first = *mRuns.front().findings;
        mOut << "<h1>Replay of " << escapeHtml(first.layer) << "</h1>\n";
        paragraph("quiet", describeInput(first));
        notes();
        mOut << "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Summary\">\n"
                "<table id=\"summary\">\n";
        heading("How it went");
        for (const Line& line : kLines) {
            row(line.question, [&](const Findings& f) { return escapeHtml(line.answer(f)); });
        }
        mOut << "</tbody></table></div>\n";
        details();
    }

  private:
    static std::string describeInput(const Findings& f) {
        return format("%s: %.2f s, %zu frames, display at %.2f Hz (a vsync every %.2f ms)",
                      f.source.c_str(), toSeconds(f.durationNs), f.frames.size(),
                      1e9 / static_cast<double>(f.periodNs), toMs(f.periodNs));
    }

    // What the reader should know before believing a figure.
    void notes() {
        const std::string& damage = mRuns.front().findings->damage;
        if (!damage.empty()) paragraph("note", damage);
        noteZeroRenderTimes();
        for (const ReportRun& run : mRuns) {
            const std::string label = mRuns.size() > 1 ? run.label + " logged: " : "Logged: ";
            for (const std::string& error : run.findings->errors) paragraph("note", label + error);
        }
    }

    void noteZeroRenderTimes() {
        std::string counts;
        for (const ReportRun& run : mRuns) {
            if (run.findings->zeroRenderTimes == 0) continue;
            counts += (counts.empty() ? "" : ", ") +
                      (mRuns.size() > 1 ? run.label + ": " : std::string()) +
                      format("%zu frames", run.findings->zeroRenderTimes);
        }
        if (counts.empty()) return;
        paragraph("note",
                  "Without any render time, because their thread was held past the "
                  "captured moment (" +
                          counts +
                          "). A modelled run (--model) shows what "
                          "such a game would have done.");
    }

    void paragraph(const char* kind, const std::string& text) {
        mOut << "<p class=\"" << kind << "\">" << escapeHtml(text) << "</p>\n";
    }

    void heading(const char* caption) {
        mOut << "<caption>" << caption << "</caption>\n<thead><tr><td></td>";
        for (const ReportRun& run : mRuns) {
            mOut << "<th scope=\"col\">" << escapeHtml(run.label) << "</th>";
        }
        mOut << "</tr></thead><tbody>\n";
    }

    template <typename Cell>
    void row(const std::string& name, Cell&& cell) {
        mOut << "<tr><th scope=\"row\">" << escapeHtml(name) << "</th>";
        for (const ReportRun& run : mRuns) mOut << "<td>" << cell(*run.findings) << "</td>";
        mOut << "</tr>\n";
    }

    void details() {
        mOut << "<details><summary>Every figure, and the conditions</summary>\n"
                "<div class=\"scroll\" tabindex=\"0\" role=\"region\" aria-label=\"Figures\">\n"
                "<table>\n";
        heading("Conditions");
        for (const auto& [name, value] : mRuns.front().findings->conditions) {
            row(name, [&, &key = name](const Findings& f) { return condition(f, key); });
        }
        mOut << "</tbody></table>\n<table id=\"all-figures\">\n";
        heading(mRuns.size() > 1 ? "Figures, with the change against the first" : "Figures");
        for (const Figure& figure : figures()) {
            row(figure.label, [&](const Findings& f) { return value(figure, f); });
        }
        mOut << "</tbody></table></div></details>\n";
    }

    static std::string condition(const Findings& findings, const std::string& name) {
        for (const auto& [key, value] : findings.conditions) {
            if (key == name) return escapeHtml(value);
        }
        return "";
    }

    std::string value(const Figure& figure, const Findings& findings) const {
        const double number = figure.of(findings);
        if (std::isnan(number)) return "not known";
        const int decimals = figure.isCount() ? 0 : 2;
        std::string text = format("%.*f %s", decimals, number, figure.unit);
        const double change = number - figure.of(*mRuns.front().findings);
        const bool isFirst = &findings == mRuns.front().findings;
        if (isFirst || std::isnan(change) || std::fabs(change) < 0.005) return text;
        return text + format(" <span class=\"change\">(%+.*f%s)</span>", decimals, change,
                             verdict(figure, change));
    }

    static const char* verdict(const Figure& figure, double change) {
        if (figure.better == Figure::Better::kNeither) return "";
        const bool isBetter = (change > 0) == (figure.better == Figure::Better::kMore);
        return isBetter ? ", better" : ", worse";
    }

    std::ostream& mOut;
    const std::vector<ReportRun>& mRuns;
};

}  // namespace

void writeReportSummary(std::ostream& out, const std::vector<ReportRun>& runs) {
    if (!runs.empty()) Writer(out, runs).write();
}

}  // namespace replay
