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
#include "replay/fleet/WholeFile.h"
#include "replay/report/Html.h"
#include "replay/report/ReportPage.h"

namespace replay {

namespace {

using Json = nlohmann::json;

constexpr double kThousandths = 1000;  // what the page counts in
constexpr double kPercents[] = {50, 99};
constexpr size_t kHashDigits = 16;
constexpr size_t kReasonChars = 200;
constexpr const char* kFirstFigures[] = {"repeated_vsyncs", "latency_p50_ms"};

// One row of the settings' table.
struct ShownSetting {
    std::string label;
    std::string options;
    size_t failed = 0;
    std::map<std::string, Sketch> summaries;
    std::vector<std::vector<float>> values;  // by figure and capture; not a number: not known
};

struct Failure {
    size_t count = 0;
    std::string example;
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

    bool isShown(const std::string& label) const {
        const auto& shown = mPage.settings;
        return shown.empty() || std::find(shown.begin(), shown.end(), label) != shown.end();
    }

    // Several libraries, or versions of the model, make settings of their own.
    void readSettings() {
        Statement all(mTable,
                      "SELECT setting, library, model, max(options), "
                      "count(*) OVER (PARTITION BY setting) FROM runs "
                      "GROUP BY setting, library, model ORDER BY setting, library, model");
        while (all.step()) {
            const std::string label = all.text(0);
            if (!isShown(label)) continue;
            if (label == mPage.base && !mHasBase) {
                mBase = mSettings.size();
                mHasBase = true;
            }
            mBySetting[label + "\n" + all.text(1) + "\n" + all.text(2)] = mSettings.size();
            ShownSetting setting;
            setting.label = label;
            if (all.text(4) != "1") {
                setting.label +=
                        " (library " + all.text(1).substr(0, 8) + ", model " + all.text(2) + ")";
            }
            setting.options = all.text(3);
            setting.values.assign(figures().size(), std::vector<float>(mNames.size(), NAN));
            mSettings.push_back(std::move(setting));
        }
        if (!mHasBase)
            throw InputError("no run is labelled " + inQuotes(mPage.base) + "; see --base");
    }

    void readRuns() {
        std::string sql = "SELECT capture, setting, library, model, failure";
        for (const char* summary : kSummaries) sql += std::string(",") + summary + "_summary";
        for (const Figure& figure : figures()) sql += "," + sqlName(figure.name);
        Statement all(mTable, sql + " FROM runs");
        while (all.step()) {
            const auto setting =
                    mBySetting.find(all.text(1) + "\n" + all.text(2) + "\n" + all.text(3));
            const auto capture = mCaptures.find(all.text(0));
            if (setting == mBySetting.end() || capture == mCaptures.end()) continue;
            takeRun(all, mSettings[setting->second], capture->second);
        }
    }

    void takeRun(const Statement& run, ShownSetting& setting, size_t capture) {
        int column = 4;
        const std::string failure = run.text(column++);
        if (!failure.empty()) {
            ++setting.failed;
            const std::string reason =
                    failure.substr(0, failure.find('\n')).substr(0, kReasonChars);
            if (mFailures[reason].count++ == 0) {
                mFailures[reason].example = mNames[capture] + ", " + setting.label;
            }
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
        for (const auto& [reason, failure] : mFailures) {
            all.push_back(
                    {{"reason", reason}, {"count", failure.count}, {"example", failure.example}});
        }
        std::stable_sort(all.begin(), all.end(),
                         [](const Json& a, const Json& b) { return a["count"] > b["count"]; });
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
    std::map<std::string, Failure> mFailures;
};

}  // namespace

void writeFleetPage(const std::string& path, const std::string& table, const FleetPage& page) {
    const Table source(table, Table::Use::kRead);
    PageData data(source, page);
    const auto summary = [&](std::ostream& out) {
        out << "<h1>" << escapeHtml(page.title) << "</h1>\n";
        for (const std::string& line : page.answer) out << "<p>" << escapeHtml(line) << "</p>\n";
    };
    replaceFile(path, [&](const std::string& part) {
        writeFile(part, [&](std::ostream& out) {
            writePage(out, kFleetPage, page.title, summary,
                      [&](std::ostream& to) { data.write(to); });
        });
    });
}

}  // namespace replay
