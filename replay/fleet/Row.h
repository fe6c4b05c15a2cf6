#pragma once

// One row of a fleet's table: what one capture gave under one setting, or why it gave nothing.

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/findings/Findings.h"
#include "replay/fleet/Captures.h"
#include "replay/fleet/Sketch.h"

namespace replay {

// To be raised whenever the same capture, setting and library give other figures than before: then
// rows of the past are not taken for those of today.
constexpr int kModelVersion = 1;

// What tells a run from every other. Nothing else decides what its row says.
struct RowKey {
    std::string capture;  // hash of the file
    std::string setting;  // its label
    std::string options;  // what makes it, as on the command line
    std::string library;  // hash of the file
    int model = kModelVersion;

    std::string fileName() const;  // within a folder of rows
};

struct Row {
    RowKey key;
    std::string failure;  // empty: the run was played, and all below is there
    std::string layer;
    std::string damage;  // what the capture lacks; empty if nothing
    double seconds = 0;  // length of the capture
    std::vector<std::pair<std::string, std::string>> conditions;
    std::map<std::string, double> figures;    // by name; without those that are not known
    std::map<std::string, Sketch> summaries;  // by kSummaries, ns
};

constexpr const char* kSummaries[] = {"frame_time", "latency", "held"};

Row rowOf(const RowKey& key, const Findings& findings);
Row failedRow(const RowKey& key, const std::string& reason);

// One line of JSON and back. `name` is what messages call it. Throws InputError.
std::string toText(const Row& row);
Row parseRow(const std::string& text, const std::string& name);

// The name under which a fleet knows a capture. It has a file of its own, since one capture may be
// known by several names, and what is known about it changes without a new run.
struct CaptureRecord {
    std::string capture;
    std::string name;
    Columns columns;

    std::string fileName() const;
};

std::string toText(const CaptureRecord& record);
CaptureRecord parseCaptureRecord(const std::string& text, const std::string& name);

constexpr char kRowEnding[] = ".row";
constexpr char kCaptureEnding[] = ".capture";

// A folder of rows, which several processes and machines may share. Every file in it is whole: it is
// written under another name and then renamed.
class RowFolder {
  public:
    // Creates it. Throws OutputError.
    explicit RowFolder(std::string path);

    // Nothing if it is not there, or cannot be read; it is to be made then.
    std::optional<Row> find(const RowKey& key) const;

    // Throw OutputError.
    void put(const Row& row) const { put(row.key.fileName(), toText(row)); }
    void put(const CaptureRecord& record) const { put(record.fileName(), toText(record)); }

  private:
    void put(const std::string& fileName, const std::string& text) const;

    std::string mPath;
};

}  // namespace replay
