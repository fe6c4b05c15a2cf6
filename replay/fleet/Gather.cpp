#include "replay/fleet/Gather.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Row.h"
#include "replay/fleet/Table.h"

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
template <typename Record, typename Take>
void forEachRecord(const Files& files, GatherResult& result, Take take) {
    for (const auto& [name, paths] : files) {
        std::map<std::string, Record> byText;
        for (const std::string& path : paths) {
            const std::string text = contentOf(path);
            try {
                byText.emplace(text, parseRecord<Record>(text, path));
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
        forEachRecord<CaptureRecord>(mFound.captures, mResult, take);
        mResult.captures = mCaptures.size();
    }

    // A capture that is known by several names has one line, under the first of them.
    void writeCaptures(Table& table) {
        std::string fields = "capture TEXT PRIMARY KEY,name TEXT,other_names TEXT";
        for (const std::string& column : mColumns) fields += "," + sqlName(column) + " TEXT";
        table.run("CREATE TABLE captures(" + fields + ") WITHOUT ROWID");
        Statement insert(table, "INSERT INTO captures VALUES(" + places(3 + mColumns.size()) + ")");
        for (const auto& [capture, names] : mCaptures) {
            std::vector<std::string> values{capture, names.begin()->first, ""};
            for (auto name = std::next(names.begin()); name != names.end(); ++name) {
                values[2] += (values[2].empty() ? "" : "; ") + name->first;
            }
            for (const std::string& column : mColumns) {
                const Columns& known = names.begin()->second;
                values.push_back(known.count(column) == 0 ? "" : known.at(column));
            }
            insert.run(values, {});
        }
    }

    void writeRows(Table& table) {
        std::string fields =
                "capture TEXT,setting TEXT,library TEXT,model TEXT,failure TEXT,layer TEXT,"
                "damage TEXT,reproduced TEXT,misses TEXT,options TEXT,conditions "
                "TEXT,other_figures TEXT";
        for (const char* summary : kSummaries)
            fields += std::string(",") + summary + "_summary TEXT";
        fields += ",seconds REAL";
        for (const Figure& figure : figures()) fields += "," + sqlName(figure.name) + " REAL";
        table.run("CREATE TABLE runs(" + fields + ")");
        const auto count = std::count(fields.begin(), fields.end(), ',') + 1;
        Statement insert(table,
                         "INSERT INTO runs VALUES(" + places(static_cast<size_t>(count)) + ")");
        forEachRecord<Row>(mFound.rows, mResult, [&](const Row& row) { insertRow(insert, row); });
    }

    static std::string places(size_t count) {
        std::string text = "?";
        for (size_t i = 1; i < count; ++i) text += ",?";
        return text;
    }

    void insertRow(Statement& insert, Row row) {
        std::vector<double> numbers{row.failure.empty() ? row.seconds : NAN};
        for (const Figure& figure : figures()) {
            const auto node = row.figures.extract(figure.name);
            numbers.push_back(node ? node.mapped() : NAN);
        }
        // What is left is of a program that has other figures than this one.
        const std::string others = row.figures.empty() ? "" : nlohmann::json(row.figures).dump();
        std::vector<std::string> texts{row.capture,
                                       row.setting,
                                       row.library,
                                       std::to_string(row.model),
                                       row.failure,
                                       row.layer,
                                       row.damage,
                                       row.reproduced,
                                       row.misses,
                                       row.options,
                                       nlohmann::json(row.conditions).dump(),
                                       others};
        for (const char* summary : kSummaries) texts.push_back(row.summaries[summary]);
        insert.run(texts, numbers);
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
    Statement all(source, "SELECT * FROM fleet ORDER BY name, setting, library, model, options");
    const auto line = [&](std::ostream& out, const auto& textOf) {
        for (int i = 0; i < all.columns(); ++i) out << (i > 0 ? "," : "") << csvField(textOf(i));
        out << "\n";
    };
    writeFile(csv, [&](std::ostream& out) {
        line(out, [&](int i) { return all.name(i); });
        while (all.step()) line(out, [&](int i) { return all.text(i); });
    });
}

}  // namespace replay
