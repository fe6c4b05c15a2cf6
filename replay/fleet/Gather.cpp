#include "replay/fleet/Gather.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Row.h"
#include "replay/fleet/Table.h"
#include "replay/fleet/WholeFile.h"

namespace replay {

namespace {

namespace fs = std::filesystem;

// By name within a folder of rows: where it is, once for each folder that has it.
using Files = std::map<std::string, std::set<std::string>>;

struct Found {
    Files rows;
    Files captures;
};

void addFile(Found& found, const fs::path& path) {
    const std::string name = path.filename().string();
    if (path.extension() == kRowEnding) found.rows[name].insert(path.string());
    if (path.extension() == kCaptureEnding) found.captures[name].insert(path.string());
}

// What has one name in several folders should be the same, but for a library or a manifest that was
// changed by hand; then the choice must at least not depend on the order.
template <typename Parse, typename Take>
void forEachRecord(const Files& files, GatherResult& result, Parse parse, Take take) {
    for (const auto& [name, paths] : files) {
        std::map<std::string, decltype(parse("", ""))> byText;
        for (const std::string& path : paths) {
            std::ifstream file(path, std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            try {
                byText.emplace(text, parse(text, path));
            } catch (const InputError& error) {
                ++result.unreadable;
                complain(error.what());
            }
        }
        if (byText.size() > 1) complain(name + ": differs between the folders; one was taken");
        if (!byText.empty()) take(byText.begin()->second);
    }
}

class TableWriter {
  public:
    TableWriter(const Found& found, GatherResult& result) : mFound(found), mResult(result) {}

    void write(const std::string& path) {
        readCaptures();
        Table table(path, Table::Use::kNew);
        table.run("BEGIN");
        writeCaptures(table);
        writeRows(table);
        std::string known = "name,other_names,";
        for (const std::string& column : mColumns) known += sqlName(column) + ",";
        table.run("CREATE VIEW fleet AS SELECT " + known +
                  "runs.* FROM runs LEFT JOIN captures USING (capture); COMMIT");
    }

  private:
    void readCaptures() {
        const auto take = [&](const CaptureRecord& record) {
            mCaptures[record.capture][record.name] = record.columns;
            for (const auto& [column, value] : record.columns) mColumns.insert(column);
        };
        forEachRecord(mFound.captures, mResult, parseCaptureRecord, take);
        mResult.captures = mCaptures.size();
    }

    // A capture that is known by several names has one line, under the first of them.
    void writeCaptures(Table& table) {
        std::string fields = "capture TEXT PRIMARY KEY, name TEXT, other_names TEXT";
        std::string places = "?,?,?";
        for (const std::string& column : mColumns) {
            fields += "," + sqlName(column) + " TEXT";
            places += ",?";
        }
        table.run("CREATE TABLE captures(" + fields + ") WITHOUT ROWID");
        Statement insert(table.handle(), "INSERT INTO captures VALUES(" + places + ")");
        for (const auto& [capture, names] : mCaptures) {
            std::string others;
            for (auto name = std::next(names.begin()); name != names.end(); ++name) {
                others += (others.empty() ? "" : "; ") + name->first;
            }
            insert.bind(0, capture);
            insert.bind(1, names.begin()->first);
            insert.bind(2, others);
            bindColumns(insert, names.begin()->second);
            insert.step();
        }
    }

    void bindColumns(Statement& insert, const Columns& columns) const {
        int parameter = 3;
        for (const std::string& column : mColumns) {
            const auto found = columns.find(column);
            insert.bind(parameter++, found == columns.end() ? "" : found->second);
        }
    }

    static constexpr const char* kRunFields[] = {
            "capture TEXT",    "setting TEXT",       "library TEXT", "model TEXT",
            "failure TEXT",    "layer TEXT",         "damage TEXT",  "options TEXT",
            "conditions TEXT", "other_figures TEXT", "seconds REAL"};

    void writeRows(Table& table) {
        std::string fields;
        std::string places;
        const auto add = [&](const std::string& field) {
            fields += (fields.empty() ? "" : ",") + field;
            places += places.empty() ? "?" : ",?";
        };
        for (const char* field : kRunFields) add(field);
        for (const Figure& figure : figures()) add(sqlName(figure.name) + " REAL");
        for (const char* summary : kSummaries) add(std::string(summary) + "_summary TEXT");
        table.run("CREATE TABLE runs(" + fields + ")");
        Statement insert(table.handle(), "INSERT INTO runs VALUES(" + places + ")");
        forEachRecord(mFound.rows, mResult, parseRow,
                      [&](const Row& row) { insertRow(insert, row); });
    }

    void insertRow(Statement& insert, Row row) {
        int next = 0;
        for (const std::string& text :
             {row.key.capture, row.key.setting, row.key.library, std::to_string(row.key.model),
              row.failure, row.layer, row.damage, row.key.options,
              nlohmann::json(row.conditions).dump()}) {
            insert.bind(next++, text);
        }
        const int others = next++;
        insert.bind(next++,
                    row.failure.empty() ? std::optional<double>(row.seconds) : std::nullopt);
        for (const Figure& figure : figures()) {
            const auto node = row.figures.extract(figure.name);
            insert.bind(next++, node ? std::optional<double>(node.mapped()) : std::nullopt);
        }
        for (const char* summary : kSummaries) insert.bind(next++, row.summaries[summary].text());
        // Those of a program that has other figures than this one.
        insert.bind(others, row.figures.empty() ? "" : nlohmann::json(row.figures).dump());
        insert.step();
        ++mResult.rows;
        if (!row.failure.empty()) ++mResult.failed;
    }

    const Found& mFound;
    GatherResult& mResult;
    std::map<std::string, std::map<std::string, Columns>> mCaptures;  // by hash, by name
    std::set<std::string> mColumns;
};

Found findFiles(const std::vector<std::string>& folders, GatherResult& result) {
    Found found;
    for (const std::string& folder : folders) {
        try {
            for (const auto& entry : fs::recursive_directory_iterator(folder)) {
                addFile(found, entry.path());
            }
        } catch (const fs::filesystem_error& error) {
            ++result.unreadable;
            complain(folder + ": " + error.code().message());
        }
    }
    return found;
}

}  // namespace

GatherResult gatherRows(const std::vector<std::string>& folders, const std::string& table) {
    GatherResult result;
    const Found found = findFiles(folders, result);
    replaceFile(table, [&](const std::string& part) { TableWriter(found, result).write(part); });
    return result;
}

void writeCsv(const std::string& table, const std::string& csv) {
    const Table source(table, Table::Use::kRead);
    Statement all(source.handle(),
                  "SELECT * FROM fleet ORDER BY name, setting, library, model, options");
    const auto line = [&](std::ostream& out, const auto& textOf) {
        for (int i = 0; i < all.columns(); ++i) out << (i > 0 ? "," : "") << csvField(textOf(i));
        out << "\n";
    };
    replaceFile(csv, [&](const std::string& part) {
        writeFile(part, [&](std::ostream& out) {
            line(out, [&](int i) { return all.name(i); });
            while (all.step()) line(out, [&](int i) { return all.text(i); });
        });
    });
}

}  // namespace replay
