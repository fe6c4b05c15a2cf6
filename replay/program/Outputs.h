#pragma once

// What a replay leaves behind, as the command line asks for it.

#include <string>
#include <vector>

#include "replay/findings/Compare.h"
#include "replay/plan/PlayInput.h"
#include "replay/program/CommandLine.h"

namespace replay {

// The object of one run, as --json writes it.
std::string jsonLine(const CommandLine& line, const Setup& setup, const Findings& findings);

// A line for each run, unless --json is not asked for. Throws OutputError, like all below.
void writeJson(const CommandLine& line, const std::vector<std::string>& lines);

// One run in words; nothing if standard output is for the JSON.
void writeText(const CommandLine& line, const Played& played);
// Several runs side by side, in the order of the plan.
void writeTables(const CommandLine& line, const std::vector<ComparedRun>& runs);

// Runs of one input that are kept whole, for files that show them whole.
struct WholeRun {
    std::string label;
    Played played;
};
void writeFiles(const CommandLine& line, const std::vector<WholeRun>& runs);

}  // namespace replay
