#pragma once

// Which captures a fleet has, and what is known about each beside what is in it.

#include <map>
#include <string>
#include <vector>

namespace replay {

using Columns = std::map<std::string, std::string>;  // device, game, build: whatever there is

struct FleetCapture {
    std::string name;  // the same on every machine: as the manifest or the folder has it
    std::string path;  // where it is on this one
    Columns columns;
    std::string hash;  // of its content, see hashOfFile; empty if not known yet
};

// An argument is a capture, a manifest (NAME.csv: a header line with "path" and any other columns;
// paths are relative to the manifest), a folder with a captures.csv, or a folder of captures.
// Sorted by name. Throws InputError.
std::vector<FleetCapture> listCaptures(const std::vector<std::string>& arguments);

// SHA-256, hexadecimal. hashOfFile throws InputError if it cannot be read.
std::string hashOfFile(const std::string& path);
std::string hashOfText(const std::string& text);

}  // namespace replay
