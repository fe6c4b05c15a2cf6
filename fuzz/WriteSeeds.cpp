// write_seeds FOLDER: writes what the fuzzers begin with, half a second of a game in
// every format and cut in several places, into the folder of each target; beside it, in
// TARGET.list, their names for -seed_inputs, with which a fuzzer takes them without adding to them.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "tests/replay/CaptureFormats.h"

namespace {

namespace fs = std::filesystem;

// The list of each target, by its folder.
using Lists = std::map<std::string, std::string>;

void write(const fs::path& folder, const std::string& name, const std::string& bytes,
           Lists& lists) {
    fs::create_directories(folder);
    const fs::path file = folder / name;
    std::ofstream(file, std::ios::binary) << bytes;
    std::string& list = lists[folder.string()];
    list += (list.empty() ? "" : ",") + file.string();
}

// The target that reads the format by itself, besides the one that reads all.
std::string targetOf(const std::string& name) {
    if (name.find('.') != std::string::npos)
        return name.find(".zip") == std::string::npos ? "capture" : "zip";
    return name.substr(0, name.find('_'));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: write_seeds FOLDER\n");
        return 2;
    }
    Lists lists;
    for (const replay::NamedCapture& file : replay::inEveryFormat(replay::gameSamples(30))) {
        for (const size_t quarters : {1, 3, 4}) {
            const std::string name = std::string(file.name) + "." + std::to_string(quarters);
            const std::string part = file.bytes.substr(0, file.bytes.size() * quarters / 4);
            write(fs::path(argv[1]) / targetOf(file.name), name, part, lists);
            write(fs::path(argv[1]) / "capture", name, part, lists);
        }
    }
    for (const auto& [folder, list] : lists) std::ofstream(folder + ".list") << list;
    return 0;
}
