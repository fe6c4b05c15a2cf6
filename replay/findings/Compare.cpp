#include "replay/findings/Compare.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/findings/Ranking.h"

namespace replay {

namespace {

constexpr size_t kMaxNameChars = 40;

constexpr const char* kOverviewFigures[] = {
        "frames",          "frames_per_second", "shown_in_time_percent",
        "repeated_vsyncs", "low_1_percent_fps", "late_frames",
        "stutters",        "frame_time_p99_ms", "latency_p95_ms",
        "held_total_s",    "boosted_s",         "negative_s",
};

std::string valueText(const Figure& figure, double value) {
    if (std::isnan(value)) return "?";
    return figure.isCount() ? format("%.0f", value) : format("%.3f", value);
}

std::string changeText(const Figure& figure, double before, double after) {
    if (std::isnan(before) || std::isnan(after) || before == after) return "";
    return figure.isCount() ? format("%+.0f", after - before) : format("%+.3f", after - before);
}

const char* colourOf(double worse, TableStyle style) {
    const Trend trend = trendOf(worse);
    if (!style.forTerminal || trend == Trend::kNeither) return "";
    return trend == Trend::kWorse ? "\x1b[31m" : "\x1b[32m";
}

std::string cut(const std::string& text, size_t length) {
    // The end of a path says more than its beginning.
    return text.size() <= length ? text : "..." + text.substr(text.size() - length + 3);
}

// A table of texts; columns as wide as needed, all but the first to the right.
class Table {
  public:
    void row(std::vector<std::string> cells, std::vector<std::string> colours = {}) {
        mWidths.resize(std::max(mWidths.size(), cells.size()));
        for (size_t i = 0; i < cells.size(); ++i) {
            mWidths[i] = std::max(mWidths[i], cells[i].size());
        }
        colours.resize(cells.size());
        mRows.push_back({std::move(cells), std::move(colours)});
    }

    void write(std::ostream& out) const {
        for (const Row& row : mRows) {
            std::string line;
            for (size_t i = 0; i < row.cells.size(); ++i) line += cell(row, i);
            line.erase(line.find_last_not_of(' ') + 1);
            out << line << '\n';
        }
    }

  private:
    struct Row {
        std::vector<std::string> cells;
        std::vector<std::string> colours;
    };

    std::string cell(const Row& row, size_t i) const {
        const std::string padding(mWidths[i] - row.cells[i].size(), ' ');
        std::string text = row.cells[i];
        if (!row.colours[i].empty()) text = row.colours[i] + text + "\x1b[0m";
        return i == 0 ? text + padding : "  " + padding + text;
    }

    std::vector<Row> mRows;
    std::vector<size_t> mWidths;
};

std::vector<const ComparedRun*> withoutErrors(const std::vector<ComparedRun>& runs) {
    std::vector<const ComparedRun*> good;
    for (const ComparedRun& run : runs) {
        if (run.error.empty()) good.push_back(&run);
    }
    return good;
}

void noteModelled(std::ostream& out, const std::vector<const ComparedRun*>& runs) {
    std::string names;
    size_t count = 0;
    for (const ComparedRun* run : runs) {
        if (!run->modelled) continue;
        names += (count++ == 0 ? "" : ", ") + run->setting;
    }
    if (count == 0) return;
    out << "modelled, not as captured: " << (count == runs.size() ? "all runs" : names) << '\n';
}

std::vector<std::vector<double>> valuesOf(const std::vector<const ComparedRun*>& runs) {
    std::vector<std::vector<double>> values;
    for (const ComparedRun* run : runs) values.push_back(run->values);
    return values;
}

void addFigure(Table& table, size_t index, const std::vector<const ComparedRun*>& runs,
               TableStyle style) {
    const Figure& figure = figures()[index];
    std::vector<std::string> cells = {std::string("  ") + figure.label, figure.unit};
    std::vector<std::string> colours = {"", ""};
    const double before = runs[0]->values[index];
    for (const ComparedRun* run : runs) {
        const double value = run->values[index];
        cells.push_back(valueText(figure, value));
        colours.emplace_back(colourOf(regression(index, before, value), style));
        if (run == runs[0]) continue;
        cells.push_back(changeText(figure, before, value));
        colours.emplace_back("");
    }
    table.row(std::move(cells), std::move(colours));
}

using Group = std::vector<ComparedRun>;

// The runs of each capture, first those with the worst any of its settings did.
std::vector<Group> groupsOf(std::vector<ComparedRun> runs, size_t perGroup) {
    std::vector<Group> groups;
    for (size_t i = 0; i < runs.size(); ++i) {
        if (i % perGroup == 0) groups.emplace_back();
        groups.back().push_back(std::move(runs[i]));
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
        return worstChange(valuesOf(withoutErrors(a))).regression >
               worstChange(valuesOf(withoutErrors(b))).regression;
    });
    return groups;
}

// The figure that became worst, by which captures are ranked: "late frames +12".
std::string whatRanks(const ComparedRun& run, const ComparedRun& base) {
    if (!base.error.empty()) return "";
    const WorstChange worst = worstChange({base.values, run.values});
    if (trendOf(worst.regression) != Trend::kWorse) return "";
    const Figure& figure = figures()[worst.figure];
    return std::string(figure.label) + " " +
           changeText(figure, base.values[worst.figure], run.values[worst.figure]);
}

void addRun(Table& table, const ComparedRun& run, const ComparedRun& base, TableStyle style) {
    std::vector<std::string> cells = {cut(run.capture, kMaxNameChars), run.setting};
    std::vector<std::string> colours = {"", ""};
    if (!run.error.empty()) {
        cells.emplace_back("failed");
        return table.row(std::move(cells), {"", "", style.forTerminal ? "\x1b[31m" : ""});
    }
    for (const char* name : kOverviewFigures) {
        const size_t index = figureNamed(name);
        cells.push_back(valueText(figures()[index], run.values[index]));
        const bool comparable = base.error.empty();
        colours.emplace_back(colourOf(
                comparable ? regression(index, base.values[index], run.values[index]) : 0, style));
    }
    cells.push_back(whatRanks(run, base));
    table.row(std::move(cells), std::move(colours));
}

}  // namespace

ComparedRun comparedRun(const nlohmann::json& run) {
    ComparedRun compared;
    compared.capture = run.value("source", "");
    compared.setting = run.value("setting", "");
    const auto reproduction = run.find("reproduction");
    if (reproduction != run.end() && reproduction->is_object() && !reproduction->at("holds"))
        compared.setting += " (model misses the capture)";
    compared.modelled = run.value("modelled", false);
    for (const Figure& figure : figures()) {
        const nlohmann::json& value = run.at("figures").at(figure.name);
        compared.values.push_back(value.is_null() ? std::numeric_limits<double>::quiet_NaN()
                                                  : value.get<double>());
    }
    return compared;
}

void writeComparison(std::ostream& out, const std::vector<ComparedRun>& runs, TableStyle style) {
    const std::vector<const ComparedRun*> good = withoutErrors(runs);
    if (good.empty()) return;
    Table table;
    std::vector<std::string> head = {"", "", good[0]->setting};
    for (size_t i = 1; i < good.size(); ++i) {
        head.insert(head.end(), {good[i]->setting, "change"});
    }
    table.row(std::move(head));
    const std::vector<RankedFigure> ranked = rankedFigures(valuesOf(good));
    for (size_t i = 0; i < ranked.size(); ++i) {
        if (i == 0 || ranked[i].trend != ranked[i - 1].trend)
            table.row({toString(ranked[i].trend)});
        addFigure(table, ranked[i].figure, good, style);
    }
    table.write(out);
    out << format("%zu figures, %zu without a difference left out\n", figures().size(),
                  figures().size() - ranked.size());
    noteModelled(out, good);
}

void writeOverview(std::ostream& out, const std::vector<ComparedRun>& runs,
                   size_t settingsPerCapture, TableStyle style) {
    Table table;
    std::vector<std::string> head = {"capture", "setting"};
    for (const char* name : kOverviewFigures) {
        const Figure& figure = figures()[figureNamed(name)];
        head.push_back(std::string(figure.label) + (figure.isCount() ? "" : " ") + figure.unit);
    }
    if (settingsPerCapture > 1) head.emplace_back("ranked by");
    table.row(std::move(head));
    for (const Group& group : groupsOf(runs, settingsPerCapture)) {
        for (const ComparedRun& run : group) addRun(table, run, group.front(), style);
    }
    table.write(out);
    noteModelled(out, withoutErrors(runs));
}

}  // namespace replay
