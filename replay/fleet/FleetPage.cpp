#include "replay/fleet/FleetPage.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Row.h"
#include "replay/fleet/Sketch.h"
#include "replay/fleet/Table.h"
#include "replay/report/Html.h"
#include "replay/report/ReportPage.h"

namespace replay {

namespace {

using Json = nlohmann::json;

constexpr double kThousandths = 1000;  // what the page counts in
constexpr double kPercents[] = {50, 99};
constexpr size_t kHashDigits = 16;
constexpr const char* kFirstFigures[] = {"repeated_vsyncs", "latency_p50_ms"};

// One row of the settings' table.
struct ShownSetting {
    std::string label;
    std::string options;
    size_t failed = 0;
    std::map<std::string, Sketch> summaries;
    std::vector<std::vector<float>> values;  // by figure and capture; not a number: not known
};

class PageData {
  public:
    PageData(const Table& table, const FleetPage& page) : mTable(table), mPage(page) {
        readCaptures();
        readSettings();
        readRuns();
    }

    void write(std::ostream& out) {
        const std::vector<size_t> differing = differingFigures();
        Json json = {{"base", mBase},
                     {"names", mNames},
                     {"hashes", mHashes},
                     {"columns", columns()},
                     {"first", kFirstFigures},
                     {"percentileTitles", Json::array()},
                     {"settings", Json::array()},
                     {"figures", Json::array()},
                     {"values", Json::array()},
                     {"failures", failures()}};
        for (const char* summary : kSummaries) {
            for (const double percent : kPercents) {
                json["percentileTitles"].push_back(format("%s p%g, ms", summary, percent));
            }
        }
        for (const ShownSetting& setting : mSettings) json["settings"].push_back(asJson(setting));
        for (const size_t figure : differing) {
            const Figure& shown = figures()[figure];
            json["figures"].push_back({{"name", shown.name},
                                       {"label", shown.label},
                                       {"unit", shown.unit},
                                       {"less", shown.better == Figure::Better::kLess}});
            Json bySetting = Json::array();
            for (size_t i = 0; i < mSettings.size(); ++i) bySetting.push_back(values(figure, i));
            json["values"].push_back(std::move(bySetting));
        }
        out << scriptJson(json);
    }

  private:
    static constexpr int kFirstColumn = 3;  // of the manifest, in the table of captures

    void readCaptures() {
        Statement all(mTable, "SELECT * FROM captures ORDER BY name");
        for (int i = kFirstColumn; i < all.columns(); ++i) mColumns[all.name(i)];
        while (all.step()) {
            mCaptures[all.text(0)] = mNames.size();
            mHashes.push_back(all.text(0).substr(0, kHashDigits));
            mNames.push_back(all.text(1));
            for (int i = kFirstColumn; i < all.columns(); ++i) {
                mColumns[all.name(i)].push_back(all.text(i));
            }
        }
    }

    bool isShown(const std::string& options) const {
        const auto& shown = mPage.options;
        return shown.empty() || std::find(shown.begin(), shown.end(), options) != shown.end();
    }

    // One label may stand for several: other options, another library or version of the model.
    void readSettings() {
        Statement all(mTable,
                      "SELECT setting, options, library, model, "
                      "count(*) OVER (PARTITION BY setting) FROM runs "
                      "GROUP BY setting, options, library, model ORDER BY 1, 2, 3, 4");
        while (all.step()) {
            ShownSetting setting;
            setting.label = all.text(0);
            setting.options = all.text(1);
            if (!isShown(setting.options)) continue;
            if (setting.label == mPage.base && !mHasBase) {
                mBase = mSettings.size();
                mHasBase = true;
            }
            mBySetting[keyOf(all, 0)] = mSettings.size();
            if (all.text(4) != "1") {
                setting.label += format(" (%zu: library %.8s, model %s)", mSettings.size(),
                                        all.text(2).c_str(), all.text(3).c_str());
            }
            setting.values.assign(figures().size(), std::vector<float>(mNames.size(), NAN));
            mSettings.push_back(std::move(setting));
        }
        if (!mHasBase)
            throw InputError("no run is labelled " + inQuotes(mPage.base) + "; see --base");
    }

    static std::string keyOf(const Statement& run, int first) {
        std::string key;
        for (int i = first; i < first + 4; ++i) key += run.text(i) + "\n";
        return key;
    }

    void readRuns() {
        std::string sql = "SELECT capture, setting, options, library, model, failure";
        for (const char* summary : kSummaries) sql += std::string(",") + summary + "_summary";
        for (const Figure& figure : figures()) sql += "," + sqlName(figure.name);
        Statement all(mTable, sql + " FROM runs");
        while (all.step()) {
            const auto setting = mBySetting.find(keyOf(all, 1));
            const auto capture = mCaptures.find(all.text(0));
            if (setting == mBySetting.end() || capture == mCaptures.end()) continue;
            takeRun(all, mSettings[setting->second], capture->second);
        }
    }

    void takeRun(const Statement& run, ShownSetting& setting, size_t capture) {
        int column = 5;
        if (!run.text(column++).empty()) {
            ++setting.failed;
            return;
        }
        for (const char* summary : kSummaries) {
            setting.summaries[summary].merge(Sketch::parse(run.text(column++)));
        }
        for (std::vector<float>& values : setting.values) {
            values[capture] = static_cast<float>(run.number(column++));
        }
    }

    // What is a matter of better or worse and is not the same under all settings.
    std::vector<size_t> differingFigures() const {
        std::vector<size_t> differing;
        for (size_t i = 0; i < figures().size(); ++i) {
            const bool matters = figures()[i].better != Figure::Better::kNeither;
            if (matters &&
                std::any_of(mSettings.begin(), mSettings.end(), [&](const auto& setting) {
                    return differs(setting.values[i], mSettings[mBase].values[i]);
                })) {
                differing.push_back(i);
            }
        }
        return differing;
    }

    static bool differs(const std::vector<float>& a, const std::vector<float>& b) {
        for (size_t i = 0; i < a.size(); ++i) {
            if (std::isfinite(a[i]) && std::isfinite(b[i]) && a[i] != b[i]) return true;
        }
        return false;
    }

    // Of the base as they are, of the others what they differ by: mostly nothing, which is short.
    Json values(size_t figure, size_t setting) const {
        const std::vector<float>& base = mSettings[mBase].values[figure];
        const std::vector<float>& all = mSettings[setting].values[figure];
        Json list = Json::array();
        for (size_t i = 0; i < all.size(); ++i) {
            const float value = setting == mBase ? all[i] : all[i] - base[i];
            list.push_back(std::isnan(value) ? Json() : Json(std::llround(value * kThousandths)));
        }
        return list;
    }

    static Json asJson(const ShownSetting& setting) {
        Json percentiles = Json::array();
        for (const char* summary : kSummaries) {
            const auto sketch = setting.summaries.find(summary);
            for (const double percent : kPercents) {
                percentiles.push_back(sketch == setting.summaries.end()
                                              ? Json()
                                              : Json(toMs(sketch->second.percentile(percent))));
            }
        }
        return {{"label", setting.label},
                {"options", setting.options},
                {"failed", setting.failed},
                {"percentiles", percentiles}};
    }

    Json columns() const {
        Json all = Json::object();
        for (const auto& [name, texts] : mColumns) {
            const std::set<std::string> values(texts.begin(), texts.end());
            std::map<std::string, size_t> index;
            for (const std::string& value : values) index.emplace(value, index.size());
            Json of = Json::array();
            for (const std::string& text : texts) of.push_back(index[text]);
            all[name] = {{"values", values}, {"of", of}};
        }
        return all;
    }

    Json failures() const {
        Json all = Json::array();
        Statement failed(mTable,
                         "SELECT count(*), substr(failure, 1, instr(failure || char(10), char(10)) "
                         "- 1) AS reason, min(name) FROM fleet WHERE failure <> '' "
                         "GROUP BY reason ORDER BY 1 DESC, 2");
        while (failed.step()) {
            all.push_back({{"count", failed.number(0)},
                           {"reason", failed.text(1)},
                           {"example", failed.text(2)}});
        }
        return all;
    }

    const Table& mTable;
    const FleetPage& mPage;
    std::map<std::string, size_t> mCaptures;  // by hash
    std::vector<std::string> mNames;
    std::vector<std::string> mHashes;
    std::map<std::string, std::vector<std::string>> mColumns;
    std::map<std::string, size_t> mBySetting;
    std::vector<ShownSetting> mSettings;
    size_t mBase = 0;
    bool mHasBase = false;
};

}  // namespace

void writeFleetPage(const std::string& path, const std::string& table, const FleetPage& page) {
    const Table source(table, Table::Use::kRead);
    PageData data(source, page);
    const auto summary = [&](std::ostream& out) {
        out << "<h1>" << escapeHtml(page.title) << "</h1>\n";
        for (const std::string& line : page.answer) out << "<p>" << escapeHtml(line) << "</p>\n";
    };
    writeFile(path, [&](std::ostream& out) {
        writePage(out, kFleetPage, page.title, summary, [&](std::ostream& to) { data.write(to); });
    });
}

}  // namespace replay
