#include "replay/fleet/FleetPage.h"

#include <nlohmann/json.hpp>

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
constexpr const char* kFirstFigures[] = {"repeated_vsyncs", "latency_p50_ms"};

// `item` of each figure that is a matter of better or worse, as a list.
template <typename Item>
std::string forFigures(const std::vector<const Figure*>& shown, Item item) {
    std::string list;
    for (const Figure* figure : shown) {
        list += (list.empty() ? "" : ", ") + item(std::string(figure->name));
    }
    return list;
}

// What the page shows, as SQLite makes it of the table: settings and captures by number, and the
// figures of those that were played. One label may stand for several settings: other options, another
// library or version of the model.
class PageData {
  public:
    PageData(const Table& table, const FleetPage& page) : mTable(table) {
        mTable.run(R"(
            CREATE TEMP TABLE places AS
            SELECT row_number() OVER (ORDER BY name, capture) - 1 AS place, capture, name FROM captures;
            CREATE TEMP TABLE settings AS
            SELECT row_number() OVER (ORDER BY setting, options, library, model) - 1 AS id, setting,
                options, library, model, count(nullif(failure, '')) AS failed,
                count(*) OVER (PARTITION BY setting) AS alike
            FROM runs)" +
                   shownOnly(page.options) + " GROUP BY setting, options, library, model");
        mBase = mTable.valueOf("SELECT id FROM settings WHERE setting = " + sqlText(page.base) +
                               " ORDER BY 1");
        if (mBase.empty())
            throw InputError("no run is labelled " + inQuotes(page.base) + "; see --base");
        for (const Figure& figure : figures()) {
            if (figure.better != Figure::Better::kNeither) mFigures.push_back(&figure);
        }
        const std::string names =
                forFigures(mFigures, [](const std::string& name) { return name; });
        mTable.run("CREATE TEMP TABLE shown(setting, place, " + names +
                   ", PRIMARY KEY(setting, place)) WITHOUT ROWID; "
                   "INSERT OR IGNORE INTO shown SELECT id, place, " +
                   names + kPlayed);
        keepDiffering();
    }

    void write(std::ostream& out) const {
        const Json json = {
                {"base", std::stoul(mBase)},
                {"names", parsed("SELECT json_group_array(name) FROM places")},
                {"hashes", parsed("SELECT json_group_array(substr(capture, 1, 16)) FROM places")},
                {"columns", columns()},
                {"first", kFirstFigures},
                {"percentileTitles", percentileTitles()},
                {"settings", settings()},
                {"figures", shownFigures()},
                {"failures", failures()}};
        std::string text = scriptJson(json);
        text.back() = ',';
        out << text << "\"values\":[";
        // Of the base as they are, of the others what they differ by: mostly nothing, which is short.
        Statement ids(mTable, "SELECT id FROM settings");
        while (ids.step()) out << (ids.text(0) == "0" ? "" : ",") << valuesOf(ids.text(0));
        out << "]}";
    }

  private:
    static std::string shownOnly(const std::vector<std::string>& options) {
        if (options.empty()) return "";
        return " WHERE options IN (SELECT value FROM json_each(" + sqlText(Json(options).dump()) +
               "))";
    }

    Json parsed(const std::string& sql) const { return Json::parse(mTable.valueOf(sql)); }

    // Figures that are the same under all settings are not worth a look.
    void keepDiffering() {
        const Json differing =
                parsed("SELECT json_array(" +
                       forFigures(mFigures,
                                  [](const auto& name) {
                                      return "max(a." + name + " <> b." + name + ")";
                                  }) +
                       ") FROM shown a JOIN shown b USING (place) WHERE b.setting = " + mBase);
        std::vector<const Figure*> kept;
        for (size_t i = 0; i < mFigures.size(); ++i) {
            if (differing[i] == 1) kept.push_back(mFigures[i]);
        }
        mFigures = kept;
    }

    // By figure and capture, in thousandths.
    std::string valuesOf(const std::string& setting) const {
        return mTable.valueOf("SELECT json_array(" +
                              forFigures(mFigures,
                                         [&](const auto& name) {
                                             const std::string change =
                                                     setting == mBase ? "" : " - b." + name;
                                             return "json_group_array(CAST(round(1000 * (a." +
                                                    name + change + ")) AS INTEGER))";
                                         }) +
                              ") FROM places LEFT JOIN shown a ON a.setting = " + setting +
                              " AND a.place = places.place"
                              " LEFT JOIN shown b ON b.setting = " +
                              mBase + " AND b.place = places.place");
    }

    static Json percentileTitles() {
        Json titles = Json::array();
        for (const char* summary : kSummaries) {
            for (const double percent : kPercents) {
                titles.push_back(format("%s p%g, ms", summary, percent));
            }
        }
        return titles;
    }

    Json settings() const {
        Json list = Json::array();
        Statement all(mTable, R"(SELECT options, failed, setting || iif(alike = 1, '', format(
            ' (%d: library %.8s, model %.8s)', id, library, model)) FROM settings)");
        while (all.step()) {
            list.push_back({{"label", all.text(2)},
                            {"options", all.text(0)},
                            {"failed", all.number(1)},
                            {"percentiles", Json::array()}});
        }
        for (const char* summary : kSummaries) addPercentiles(list, summary);
        return list;
    }

    void addPercentiles(Json& list, const std::string& summary) const {
        std::vector<Sketch> sketches(list.size());
        Statement all(mTable, "SELECT id, " + summary + "_summary" + kPlayed);
        while (all.step()) {
            if (all.text(1).empty()) continue;
            addTo(sketches[static_cast<size_t>(all.number(0))],
                  Json::parse(all.text(1)).get<Sketch>());
        }
        for (size_t i = 0; i < sketches.size(); ++i) {
            for (const double percent : kPercents) {
                list[i]["percentiles"].push_back(
                        sketches[i].empty() ? Json()
                                            : Json(toMs(percentileOf(sketches[i], percent))));
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
            all[captures.name(i)] = parsed(
                    "SELECT json_object('values', json((SELECT json_group_array(v) FROM (SELECT"
                    " DISTINCT " +
                    column +
                    " AS v FROM captures ORDER BY 1))), 'of', json_group_array(k))"
                    " FROM (SELECT dense_rank() OVER (ORDER BY " +
                    column +
                    ") - 1 AS k FROM captures"
                    " ORDER BY name, capture)");
        }
        return all;
    }

    Json failures() const {
        return parsed(R"(
            SELECT json_group_array(json_object('count', count, 'reason', reason, 'example', example))
            FROM (SELECT count(*) AS count, min(name) AS example,
                substr(failure, 1, instr(failure || char(10), char(10)) - 1) AS reason
                FROM fleet WHERE failure <> '' GROUP BY reason ORDER BY 1 DESC, 3))");
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
