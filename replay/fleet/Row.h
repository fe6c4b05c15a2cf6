#pragma once

// One row of a fleet's table: what one capture gave under one setting, or why it gave nothing.

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/findings/Findings.h"
#include "replay/fleet/Captures.h"

namespace replay {

// To be raised whenever the same capture, setting and library give other figures than before: then
// rows of the past are not taken for those of today.
constexpr int kModelVersion = 1;

// The first five tell a run from every other; nothing else decides what its row says.
struct Row {
    std::string capture;  // hash of the file
    std::string setting;  // its label
    std::string options;  // what makes it, as on the command line
    std::string library;  // hash of the file
    int model = kModelVersion;

    std::string failure;  // empty: the run was played, and all below is there
    std::string layer;
    std::string damage;      // what the capture lacks; empty if nothing
    std::string reproduced;  // what of the capture the model gives back without the library
    std::string misses;      // which figures it does not; empty if all
    double seconds = 0;      // length of the capture
    std::vector<std::pair<std::string, std::string>> conditions;
    std::map<std::string, double> figures;         // by name; without those that are not known
    std::map<std::string, std::string> summaries;  // by kSummaries: sketches of ns

    void take(const Findings& findings);
};

constexpr const char* kSummaries[] = {"frame_time", "latency", "held"};

// The name under which a fleet knows a capture. It has a file of its own, since one capture may be
// known by several names, and what is known about it changes without a new run.
struct CaptureRecord {
    std::string capture;
    std::string name;
    Columns columns;
};

// One line of JSON and back. `name` is what messages call it. parseRecord throws InputError.
std::string toText(const Row& row);
std::string toText(const CaptureRecord& record);
template <typename Record>
Record parseRecord(const std::string& text, const std::string& name);

constexpr char kRowEnding[] = ".row";
constexpr char kCaptureEnding[] = ".capture";

// A folder of rows, which several processes and machines may share. Every file in it is whole: it is
// written under another name and then renamed.
class RowFolder {
  public:
    // Creates it. Throws OutputError.
    explicit RowFolder(std::string path);

    // That of the same run. Nothing if it is not there, or cannot be read; it is to be made then.
    std::optional<Row> find(const Row& run) const;

    // Throw OutputError.
    void put(const Row& row) const;
    void put(const CaptureRecord& record) const;

  private:
    void put(const std::string& path, const std::string& text) const;

    std::string mPath;
};

}  // namespace replay
