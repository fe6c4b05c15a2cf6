#include "replay/fleet/Row.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <utility>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/findings/Figures.h"
#include "replay/fleet/Sketch.h"

namespace replay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Row, capture, setting, options, library, model, failure, layer,
                                   damage, reproduced, misses, seconds, conditions, figures,
                                   summaries)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CaptureRecord, capture, name, columns)

namespace {

namespace fs = std::filesystem;

// Raised when a field of a row changes its meaning.
constexpr char kRowSchema[] = "1";
// Of a hash, in names of files.
constexpr size_t kCaptureDigits = 32;
constexpr size_t kOtherDigits = 16;

// Folders of a tenth of a million files are slow on some file systems.
std::string inSubfolder(const std::string& capture, const std::string& rest, const char* ending) {
    return capture.substr(0, 2) + "/" + capture.substr(0, kCaptureDigits) + "-" +
           hashOfText(rest).substr(0, kOtherDigits) + ending;
}

std::string fileNameOf(const Row& row) {
    return inSubfolder(row.capture,
                       row.setting + "\n" + row.options + "\n" + row.library + "\n" +
                               std::to_string(row.model) + "\n" + kRowSchema,
                       kRowEnding);
}

// Names in a capture may hold any bytes.
std::string lineOf(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace

void Row::take(const Findings& findings) {
    layer = findings.layer;
    damage = findings.damage;
    if (findings.reproduction) {
        reproduced = findings.reproduction->describe();
        for (const std::string& figure : findings.reproduction->misses()) {
            misses += (misses.empty() ? "" : ", ") + figure;
        }
    }
    seconds = static_cast<double>(findings.durationNs) / 1e9;
    conditions = findings.conditions;
    for (const Figure& figure : replay::figures()) {
        const double value = figure.of(findings);
        if (!std::isnan(value)) figures[figure.name] = value;
    }
    std::map<std::string, Sketch> sketches;
    bool isFirst = true;
    for (const Frame& frame : findings.frames) {
        if (!std::exchange(isFirst, false)) sketches["frame_time"].add(frame.intervalNs);
        if (frame.latchedNs) sketches["latency"].add(*frame.latchedNs - frame.queuedNs);
        sketches["held"].add(frame.heldNs());
    }
    for (const auto& [name, sketch] : sketches) summaries[name] = sketch.text();
}

std::string toText(const Row& row) {
    return lineOf(row);
}

std::string toText(const CaptureRecord& record) {
    return lineOf(record);
}

template <typename Record>
Record parseRecord(const std::string& text, const std::string& name) {
    try {
        return nlohmann::json::parse(text).get<Record>();
    } catch (const std::exception&) {
        throw InputError(name + ": is no row, or not a whole one; remove it and sweep again");
    }
}

template Row parseRecord(const std::string&, const std::string&);
template CaptureRecord parseRecord(const std::string&, const std::string&);

RowFolder::RowFolder(std::string path) : mPath(std::move(path)) {
    std::error_code error;
    fs::create_directories(mPath, error);
    if (error) throw OutputError(mPath + ": cannot be created: " + error.message());
}

std::optional<Row> RowFolder::find(const Row& run) const {
    const std::string text = contentOf(mPath + "/" + fileNameOf(run));
    try {
        if (!text.empty()) return parseRecord<Row>(text, mPath);
    } catch (const InputError&) {
    }
    return std::nullopt;
}

void RowFolder::put(const Row& row) const {
    put(mPath + "/" + fileNameOf(row), toText(row));
}

void RowFolder::put(const CaptureRecord& record) const {
    put(mPath + "/" + inSubfolder(record.capture, record.name, kCaptureEnding), toText(record));
}

void RowFolder::put(const std::string& path, const std::string& text) const {
    if (contentOf(path) == text) return;
    std::error_code error;  // writing tells it
    fs::create_directory(fs::path(path).parent_path(), error);
    writeFile(path, [&](std::ostream& out) { out << text; });
}

}  // namespace replay
