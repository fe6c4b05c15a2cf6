#include "replay/fleet/Row.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <filesystem>
#include <utility>

#include "replay/base/Error.h"
#include "replay/base/Output.h"
#include "replay/findings/Figures.h"

namespace replay {

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Row, capture, setting, options, library, model, failure, layer,
                                   damage, reproduced, misses, seconds, conditions, figures,
                                   summaries)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(CaptureRecord, capture, name, columns)

const char kModelVersion[] =
#include "ModelVersion.inc"
        ;

namespace {

namespace fs = std::filesystem;

// Of a hash, in names of files.
constexpr size_t kCaptureDigits = 32;
constexpr size_t kOtherDigits = 16;

// Folders of a tenth of a million files are slow on some file systems.
std::string inSubfolder(const std::string& folder, const std::string& capture,
                        const std::string& rest, const char* ending) {
    return folder + "/" + capture.substr(0, 2) + "/" + capture.substr(0, kCaptureDigits) + "-" +
           hashOfText(rest).substr(0, kOtherDigits) + ending;
}

// Names in a capture may hold any bytes.
void write(const std::string& path, const nlohmann::json& json) {
    const auto text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    if (contentOf(path) == text) return;
    std::error_code error;  // writing tells it
    fs::create_directory(fs::path(path).parent_path(), error);
    writeFile(path, [&](std::ostream& out) { out << text; });
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
    bool isFirst = true;
    for (const Frame& frame : findings.frames) {
        if (!std::exchange(isFirst, false)) addTo(summaries["frame_time"], frame.intervalNs);
        if (frame.latchedNs) addTo(summaries["latency"], *frame.latchedNs - frame.queuedNs);
        addTo(summaries["held"], frame.heldNs());
    }
}

RowFolder::RowFolder(std::string path) : mPath(std::move(path)) {
    std::error_code error;
    fs::create_directories(mPath, error);
    if (error) throw OutputError(mPath + ": cannot be created: " + error.message());
}

std::string RowFolder::pathOf(const Row& run) const {
    return inSubfolder(mPath, run.capture,
                       run.setting + "\n" + run.options + "\n" + run.library + "\n" + run.model,
                       kRowEnding);
}

bool RowFolder::find(Row& run) const {
    try {
        run = nlohmann::json::parse(contentOf(pathOf(run)));
        return true;
    } catch (const nlohmann::json::exception&) {
        return false;
    }
}

void RowFolder::put(const Row& row) const {
    write(pathOf(row), row);
}

void RowFolder::put(const CaptureRecord& record) const {
    write(inSubfolder(mPath, record.capture, record.name, kCaptureEnding), record);
}

}  // namespace replay
