#include "device/Process.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace device {

namespace {

int countEntries(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

// Calls `use` with every line of the map of this process.
template <typename Use>
void eachMapping(Use use) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) use(line);
}

}  // namespace

int countThreads() {
    return countEntries("/proc/self/task");
}

int countHandles() {
    return countEntries("/proc/self/fd");
}

int countMappings() {
    int count = 0;
    eachMapping([&](const std::string&) { ++count; });
    return count;
}

bool isMapped(const std::string& name) {
    bool mapped = false;
    eachMapping([&](const std::string& line) {
        mapped = mapped || line.find(name) != std::string::npos;
    });
    return mapped;
}

}  // namespace device
