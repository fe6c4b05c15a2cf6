#include "replay/fleet/FleetPage.h"

#include <nlohmann/json.hpp>

#include <algorithm>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Row.h"
#include "replay/report/Html.h"
#include "replay/report/ReportPage.h"

namespace replay {

namespace {

using Json = nlohmann::json;

constexpr double kPercents[] = {50, 99};
constexpr char kPlayed[] =
        " FROM runs JOIN settings USING (setting, options, library, model)"
        " JOIN places USING (capture) WHERE failure = ''";

// What the page shows, as SQLite makes it of the table: settings and captures by number, and the
// figures of those that were played. One label may stand for several settings: other options, another
// library or version of the model.
class PageData {
  public:
    PageData(const Table& table, const FleetPage& page) : mTable(table) {
        const std::string shown = sqlText(Json(page.options).dump());  // empty: all
        mTable.run(R"(
            CREATE TEMP TABLE places AS
            SELECT row_number() OVER (ORDER BY name, capture) - 1 AS place, capture, name FROM captures;
            CREATE TEMP TABLE settings AS
            SELECT row_number() OVER (ORDER BY setting, options, library, model) - 1 AS id, setting,
                options, library, model, count(nullif(failure, '')) AS failed,
                count(*) OVER (PARTITION BY setting) AS alike
            FROM runs WHERE )" +
                   shown + " = '[]' OR options IN (SELECT value FROM json_each(" + shown +
                   ")) GROUP BY setting, options, library, model");
        mBase = mTable.valueOf("SELECT min(id) FROM settings WHERE setting = " +
                               sqlText(page.base));
        if (mBase.empty()) {
            throw InputError("no run is labelled " + inQuotes(page.base) + "; see --base");
        }
        for (const Figure& figure : figures()) {
            if (figure.better != Figure::Better::kNeither) mFigures.push_back(&figure);
        }
        mTable.run("CREATE TEMP TABLE shown(setting, place, " + forFigures("$") +
                   ", PRIMARY KEY(setting, place)) WITHOUT ROWID; "
                   "INSERT OR IGNORE INTO shown SELECT id, place, " +
                   forFigures("$") + kPlayed);
        keepDiffering();
    }

    void write(std::ostream& out) const {
        const Json json = {
                {"base", std::stoul(mBase)},
                {"names", parsed("SELECT json_group_array(name) FROM places")},
                {"hashes", parsed("SELECT json_group_array(substr(capture, 1, 16)) FROM places")},
                {"columns", columns()},
                {"summaries", kSummaries},
                {"percents", kPercents},
                {"settings", settings()},
                {"figures", shownFigures()},
                {"failures", failures()}};
        std::string text = scriptJson(json);
        text.back() = ',';
        out << text << "\"values\":[";
        Statement ids(mTable, "SELECT id FROM settings");
        while (ids.step()) out << (ids.text(0) == "0" ? "" : ",") << valuesOf(ids.text(0));
        out << "]}";
    }

  private:
    Json parsed(const std::string& sql) const { return Json::parse(mTable.valueOf(sql)); }

    // A list of the pattern for each figure, whose name stands for "$".
    std::string forFigures(const std::string& pattern) const {
        std::string list;
        for (const Figure* figure : mFigures) {
            list += list.empty() ? "" : ", ";
            for (const char c : pattern) list += c == '$' ? figure->name : std::string(1, c);
        }
        return list;
    }

    // Figures that are the same under all settings are not worth a look.
    void keepDiffering() {
        const Json differing =
                parsed("SELECT json_array(" + forFigures("max(a.$ <> b.$)") +
                       ") FROM shown a JOIN shown b USING (place) WHERE b.setting = " + mBase);
        auto differs = differing.begin();
        const auto isSame = [&](const Figure*) { return *differs++ != 1; };
        mFigures.erase(std::remove_if(mFigures.begin(), mFigures.end(), isSame), mFigures.end());
    }

    // By figure and capture, in thousandths: of the base as they are, of the others what they differ by,
    // which is mostly nothing and short.
    std::string valuesOf(const std::string& setting) const {
        const std::string change = setting == mBase ? "a.$" : "a.$ - b.$";
        return mTable.valueOf(
                "SELECT json_array(" +
                forFigures("json_group_array(CAST(round(1000 * (" + change + ")) AS INTEGER))") +
                format(R"() FROM places
                    LEFT JOIN shown a ON a.setting = %s AND a.place = places.place
                    LEFT JOIN shown b ON b.setting = %s AND b.place = places.place)",
                       setting.c_str(), mBase.c_str()));
    }

    Json settings() const {
        Json list = Json::array();
        Statement all(mTable, R"(SELECT options, failed, setting || iif(alike = 1, '', format(
            ' (%d: library %.8s, model %.8s)', id, library, model)) FROM settings)");
        while (all.step()) {
            list.push_back(
                    {{"label", all.text(2)}, {"options", all.text(0)}, {"failed", all.number(1)}});
        }
        for (const char* summary : kSummaries) addPercentiles(list, summary);
        return list;
    }

    void addPercentiles(Json& settings, const std::string& summary) const {
        std::vector<Sketch> sketches(settings.size());
        const std::string column = summary + "_summary";
        Statement all(mTable, "SELECT id, " + column + kPlayed + " AND " + column + " NOT NULL");
        while (all.step()) {
            const Sketch sketch = Json::parse(all.text(1));
            addTo(sketches[static_cast<size_t>(all.number(0))], sketch);
        }
        for (size_t i = 0; i < sketches.size(); ++i) {
            for (const double percent : kPercents) {
                const Json shown = toMs(percentileOf(sketches[i], percent));
                settings[i]["percentiles"].push_back(sketches[i].empty() ? Json() : shown);
            }
        }
    }

    Json shownFigures() const {
        Json list = Json::array();
        for (const Figure* figure : mFigures) {
            list.push_back({{"name", figure->name},
                            {"label", figure->label},
                            {"unit", figure->unit},
                            {"less", figure->better == Figure::Better::kLess}});
        }
        return list;
    }

    // What the lists of captures know of each, as the number of one of the values there are.
    Json columns() const {
        Json all = Json::object();
        const Statement captures(mTable, "SELECT * FROM captures");
        for (int i = 3; i < captures.columns(); ++i) {
            const std::string column = sqlName(captures.name(i));
            Json& values = all[captures.name(i)];
            values["values"] = parsed("SELECT json_group_array(v) FROM (SELECT DISTINCT " + column +
                                      " AS v FROM captures ORDER BY 1)");
            values["of"] =
                    parsed("SELECT json_group_array(k) FROM (SELECT dense_rank() OVER (ORDER BY " +
                           column + ") - 1 AS k FROM captures ORDER BY name, capture)");
        }
        return all;
    }

    Json failures() const {
        return parsed(R"(
            SELECT json_group_array(json_object('count', count, 'reason', reason, 'example', example))
            FROM (SELECT count(*) AS count, min(name) AS example,
                substr(failure, 1, instr(failure || char(10), char(10)) - 1) AS reason
                FROM runs JOIN places USING (capture) WHERE failure <> '' GROUP BY reason ORDER BY 1 DESC, 3))");
    }

    const Table& mTable;
    std::vector<const Figure*> mFigures;
    std::string mBase;  // its number
};

}  // namespace

void writeFleetPage(const std::string& path, const Table& table, const FleetPage& page) {
    const PageData data(table, page);
    const auto summary = [&](std::ostream& out) {
        out << "<h1>" << escapeHtml(page.title) << "</h1>\n";
        for (const std::string& line : page.answer) out << "<p>" << escapeHtml(line) << "</p>\n";
    };
    writeFile(path, [&](std::ostream& out) {
        writePage(out, kFleetPage, page.title, summary, [&](std::ostream& to) { data.write(to); });
    });
}

}  // namespace replay
