#include "replay/fleet/Gather.h"

#include <algorithm>
#include <filesystem>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/base/Text.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Row.h"

namespace replay {

namespace {

namespace fs = std::filesystem;

// Of a row, as in its file.
constexpr const char* kTexts[] = {"capture", "setting",    "library",   "model",
                                  "failure", "layer",      "damage",    "misses",
                                  "options", "reproduced", "conditions"};
constexpr char kFirstColumns[] = "name,other_names,";

// Lets SQLite read, sort and join what is in the files, so that nothing of them stays in memory. What
// is in the way is in its own temporary tables.
class Gatherer {
  public:
    explicit Gatherer(const Table& table) : mTable(table) {
        mTable.run(
                "BEGIN; CREATE TEMP TABLE files(ending TEXT, name TEXT, path TEXT,"
                " PRIMARY KEY(ending, name, path)) WITHOUT ROWID;"
                "CREATE TEMP TABLE names(capture TEXT, name TEXT, columns TEXT,"
                " PRIMARY KEY(capture, name)) WITHOUT ROWID");
    }

    GatherResult gather(const std::vector<std::string>& folders) {
        for (const std::string& folder : folders) addFolder(folder);
        const std::string columns = writeCaptures();
        writeRuns();
        mTable.run("CREATE VIEW fleet AS SELECT " + (kFirstColumns + columns) +
                   "runs.* FROM runs LEFT JOIN captures USING (capture); COMMIT");
        mResult.rows = count("runs");
        mResult.failed = count("runs WHERE failure <> ''");
        mResult.captures = count("captures");
        return mResult;
    }

  private:
    size_t count(const std::string& of) const {
        return std::stoul(mTable.valueOf("SELECT count(*) FROM " + of));
    }

    void addFolder(const std::string& folder) {
        Statement insert(mTable, "INSERT OR IGNORE INTO files VALUES(?, ?, ?)");
        try {
            for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                const fs::path& path = entry.path();
                const std::string ending = path.extension().string();
                if (ending != kRowEnding && ending != kCaptureEnding) continue;
                insert.run({ending, path.filename().string(), path.string()});
            }
        } catch (const fs::filesystem_error& error) {
            refuse(folder + ": " + error.code().message());
        }
    }

    void refuse(const std::string& reason) {
        ++mResult.unreadable;
        complain(reason);
    }

    // Runs the statement for what is in each file. What has one name in several folders should be the
    // same, but for a library or a manifest that was changed by hand; then the choice must at least
    // not depend on their order.
    void forEachFile(const char* ending, const char* member, const std::string& sql) {
        Statement files(mTable, "SELECT name, path FROM files WHERE ending = ? ORDER BY 1, 2");
        Statement isWhole(mTable,
                          "SELECT 1 WHERE CASE WHEN json_valid(?1) THEN json_type(?1, '$.capture') "
                          "= 'text' AND json_type(?1, '$.' || ?2) = 'object' END");
        Statement take(mTable, sql);
        std::string name;
        std::string text;
        for (bool more = files.run({ending}); more; more = files.step()) {
            const std::string path = files.text(1);
            const std::string found = contentOf(path);
            if (!isWhole.run({found, member})) {
                refuse(path + ": is no row, or not a whole one; remove it and sweep again");
                continue;
            }
            if (files.text(0) == name) {
                if (found != text) complain(name + ": differs between the folders; one was taken");
                text = std::min(text, found);
                continue;
            }
            if (!text.empty()) take.run({text});
            name = files.text(0);
            text = found;
        }
        if (!text.empty()) take.run({text});
    }

    // A capture that is known by several names has one line, under the first of them. Returns the
    // columns that the lists of captures gave.
    std::string writeCaptures() {
        forEachFile(
                kCaptureEnding, "columns",
                "INSERT OR IGNORE INTO names SELECT ?1->>'capture', ?1->>'name', ?1->'columns'");
        std::string columns;
        std::string fields = "capture TEXT PRIMARY KEY, name TEXT, other_names TEXT";
        std::string values =
                "capture, min(name), substr(group_concat(name, '; '), length(name) + 3)";
        Statement all(mTable, "SELECT DISTINCT key FROM names, json_each(columns) ORDER BY 1");
        while (all.step()) {
            columns += sqlName(all.text(0)) + ",";
            fields += "," + sqlName(all.text(0)) + " TEXT";
            values += ", coalesce((SELECT value FROM json_each(columns) WHERE key = " +
                      sqlText(all.text(0)) + "), '')";
        }
        mTable.run("CREATE TABLE captures(" + fields +
                   ") WITHOUT ROWID; INSERT INTO captures SELECT " + values +
                   " FROM (SELECT * FROM names ORDER BY 1, 2) GROUP BY capture");
        return columns;
    }

    void writeRuns() {
        std::string fields;
        std::string values;
        const auto add = [&](const std::string& field, const char* type, const std::string& value) {
            fields += (fields.empty() ? "" : ", ") + sqlName(field) + type;
            values += (values.empty() ? "?1->>'$." : ", ?1->>'$.") + value + "'";
        };
        for (const char* text : kTexts) add(text, " TEXT", text);
        for (const char* summary : kSummaries) {
            add(std::string(summary) + "_summary", " TEXT", std::string("summaries.") + summary);
        }
        add("seconds", " REAL", "seconds");
        for (const Figure& figure : figures()) {
            add(figure.name, " REAL", std::string("figures.") + figure.name);
        }
        mTable.run("CREATE TABLE runs(" + fields + ")");
        forEachFile(kRowEnding, "figures", "INSERT INTO runs SELECT " + values);
    }

    const Table& mTable;
    GatherResult mResult;
};

std::string csvField(const std::string& text) {
    return text.find_first_of(",\"\r\n") == std::string::npos ? text : sqlName(text);
}

}  // namespace

GatherResult gatherRows(const std::vector<std::string>& folders, const Table& table) {
    return Gatherer(table).gather(folders);
}

void writeCsv(const Table& table, const std::string& csv) {
    Statement all(table, "SELECT * FROM fleet ORDER BY name, setting, library, model, options");
    const auto line = [&](std::ostream& out, const auto& textOf) {
        for (int i = 0; i < all.columns(); ++i) out << (i > 0 ? "," : "") << csvField(textOf(i));
        out << "\n";
    };
    writeFile(csv, [&](std::ostream& out) {
        line(out, [&](int i) { return all.name(i); });
        while (all.step()) line(out, [&](int i) { return all.text(i); });
    });
}

bool isTableCsv(std::string_view firstBytes) {
    return startsWith(firstBytes, kFirstColumns);
}

}  // namespace replay
