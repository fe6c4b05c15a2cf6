#include "replay/fleet/WholeFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include "replay/base/Error.h"
#include "replay/base/Output.h"

namespace replay {

namespace {

// Nobody else's, on whatever machine that shares the folder.
std::string nameBeside(const std::string& path) {
    char host[65] = "";
    gethostname(host, sizeof(host) - 1);
    return path + "." + host + "." + std::to_string(getpid()) + ".part";
}

}  // namespace

void replaceFile(const std::string& path, const std::function<void(const std::string&)>& write) {
    const std::string part = nameBeside(path);
    try {
        write(part);
        if (std::rename(part.c_str(), path.c_str()) != 0) {
            throw OutputError(path + ": cannot be put in place: " + std::strerror(errno));
        }
    } catch (...) {
        unlink(part.c_str());
        throw;
    }
}

void writeWhole(const std::string& path, const std::string& text) {
    replaceFile(path, [&](const std::string& part) {
        writeFile(part, [&](std::ostream& out) { out << text; });
    });
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace replay
