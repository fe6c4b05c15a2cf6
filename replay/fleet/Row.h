#pragma once

// One row of a fleet's table: what one capture gave under one setting, or why it gave nothing.

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "replay/findings/Findings.h"
#include "replay/fleet/Captures.h"
#include "replay/fleet/Sketch.h"

namespace replay {

// A digest of the sources that a row's figures come from: the readers, the model, the simulated device
// and the row itself. Rows of other sources are not taken for those of today.
extern const char kModelVersion[];

// The first five tell a run from every other; nothing else decides what its row says.
struct Row {
    std::string capture;  // hash of the file
    std::string setting;  // its label
    std::string options;  // what makes it, as on the command line
    std::string library;  // hash of the file
    std::string model = kModelVersion;

    std::string failure;  // empty: the run was played, and all below is there
    std::string layer;
    std::string damage;      // what the capture lacks; empty if nothing
    std::string reproduced;  // what of the capture the model gives back without the library
    std::string misses;      // which figures it does not; empty if all
    double seconds = 0;      // length of the capture
    std::vector<std::pair<std::string, std::string>> conditions;
    std::map<std::string, double> figures;    // by name; without those that are not known
    std::map<std::string, Sketch> summaries;  // by kSummaries: of ns

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

constexpr char kRowEnding[] = ".row";
constexpr char kCaptureEnding[] = ".capture";

// A folder of rows, which several processes and machines may share. Every file in it is one line of
// JSON, and whole: it is written under another name and then renamed.
class RowFolder {
  public:
    // Creates it. Throws OutputError.
    explicit RowFolder(std::string path);

    // Puts what is known of the same run into `run`. False if it is not there, or cannot be read; it
    // is to be made then.
    bool find(Row& run) const;

    // Throw OutputError.
    void put(const Row& row) const;
    void put(const CaptureRecord& record) const;

  private:
    std::string pathOf(const Row& run) const;

    std::string mPath;
};

}  // namespace replay
