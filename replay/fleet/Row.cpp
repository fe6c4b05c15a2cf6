#include "replay/fleet/Row.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/WholeFile.h"

namespace replay {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

// Raised when a field of a row changes its meaning.
constexpr int kRowSchema = 1;
// Of a hash, in names of files.
constexpr size_t kCaptureDigits = 32;
constexpr size_t kOtherDigits = 16;

// Folders of a tenth of a million files are slow on some file systems.
std::string inSubfolder(const std::string& capture, const std::string& rest, const char* ending) {
    return capture.substr(0, 2) + "/" + capture.substr(0, kCaptureDigits) + "-" +
           hashOfText(rest).substr(0, kOtherDigits) + ending;
}

// Names in a capture may hold any bytes.
std::string lineOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

template <typename Record, typename Read>
Record parsed(const std::string& text, const std::string& name, Read read) {
    try {
        return read(Json::parse(text));
    } catch (const std::exception&) {
        throw InputError(name + ": is no row, or not a whole one; remove it and sweep again");
    }
}

std::map<std::string, Sketch> summariesOf(const Findings& findings) {
    std::map<std::string, Sketch> all;
    for (const char* name : kSummaries) all[name];
    bool isFirst = true;
    for (const Frame& frame : findings.frames) {
        if (!std::exchange(isFirst, false)) all["frame_time"].add(frame.intervalNs);
        if (frame.latchedNs) all["latency"].add(*frame.latchedNs - frame.queuedNs);
        all["held"].add(frame.heldNs());
    }
    return all;
}

void addResults(Json& json, const Row& row) {
    json["layer"] = row.layer;
    json["damage"] = row.damage;
    json["seconds"] = row.seconds;
    json["conditions"] = row.conditions;
    json["figures"] = row.figures;
    for (const auto& [name, sketch] : row.summaries) json["summaries"][name] = sketch.text();
}

void takeResults(Row& row, const Json& json) {
    json.at("layer").get_to(row.layer);
    json.at("damage").get_to(row.damage);
    json.at("seconds").get_to(row.seconds);
    json.at("conditions").get_to(row.conditions);
    json.at("figures").get_to(row.figures);
    for (const auto& [name, text] : json.at("summaries").items()) {
        row.summaries[name] = Sketch::parse(text.get<std::string>());
    }
}

}  // namespace

std::string RowKey::fileName() const {
    const std::string rest = setting + "\n" + options + "\n" + library + "\n" +
                             std::to_string(model) + "\n" + std::to_string(kRowSchema);
    return inSubfolder(capture, rest, kRowEnding);
}

std::string CaptureRecord::fileName() const {
    return inSubfolder(capture, name, kCaptureEnding);
}

Row rowOf(const RowKey& key, const Findings& findings) {
    Row row;
    row.key = key;
    row.layer = findings.layer;
    row.damage = findings.damage;
    row.seconds = static_cast<double>(findings.durationNs) / 1e9;
    row.conditions = findings.conditions;
    for (const Figure& figure : figures()) {
        const double value = figure.of(findings);
        if (!std::isnan(value)) row.figures[figure.name] = value;
    }
    row.summaries = summariesOf(findings);
    return row;
}

Row failedRow(const RowKey& key, const std::string& reason) {
    Row row;
    row.key = key;
    row.failure = reason;
    return row;
}

std::string toText(const Row& row) {
    Json json = {{"schema", kRowSchema},       {"capture", row.key.capture},
                 {"setting", row.key.setting}, {"options", row.key.options},
                 {"library", row.key.library}, {"model", row.key.model},
                 {"failure", row.failure}};
    if (row.failure.empty()) addResults(json, row);
    return lineOf(json);
}

Row parseRow(const std::string& text, const std::string& name) {
    return parsed<Row>(text, name, [](const Json& json) {
        Row row;
        json.at("capture").get_to(row.key.capture);
        json.at("setting").get_to(row.key.setting);
        json.at("options").get_to(row.key.options);
        json.at("library").get_to(row.key.library);
        json.at("model").get_to(row.key.model);
        json.at("failure").get_to(row.failure);
        if (row.failure.empty()) takeResults(row, json);
        return row;
    });
}

std::string toText(const CaptureRecord& record) {
    return lineOf(
            {{"capture", record.capture}, {"name", record.name}, {"columns", record.columns}});
}

CaptureRecord parseCaptureRecord(const std::string& text, const std::string& name) {
    return parsed<CaptureRecord>(text, name, [](const Json& json) {
        return CaptureRecord{json.at("capture").get<std::string>(),
                             json.at("name").get<std::string>(), json.at("columns").get<Columns>()};
    });
}

RowFolder::RowFolder(std::string path) : mPath(std::move(path)) {
    std::error_code error;
    fs::create_directories(mPath, error);
    if (error) throw OutputError(mPath + ": cannot be created: " + error.message());
}

std::optional<Row> RowFolder::find(const RowKey& key) const {
    const std::string text = contentOf(mPath + "/" + key.fileName());
    try {
        if (!text.empty()) return parseRow(text, mPath);
    } catch (const InputError&) {
    }
    return std::nullopt;
}

void RowFolder::put(const std::string& fileName, const std::string& text) const {
    const std::string path = mPath + "/" + fileName;
    if (contentOf(path) == text) return;
    std::error_code error;  // writing tells it
    fs::create_directory(fs::path(path).parent_path(), error);
    writeWhole(path, text);
}

}  // namespace replay
