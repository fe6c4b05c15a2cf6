#include "replay/base/Output.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace fs = std::filesystem;

namespace {

constexpr char kPartEnding[] = ".part";

// Nobody else's, on whatever machine that shares the folder: what this machine writes beside `path`
// begins so, then comes the process.
std::string partsOf(const std::string& path) {
    char host[65] = "";
    gethostname(host, sizeof(host) - 1);
    return fs::absolute(path).string() + "." + host + ".";
}

// Those of processes that were killed as they wrote the same file.
void removeLeftovers(const std::string& parts) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::path(parts).parent_path(), error)) {
        const std::string path = entry.path().string();
        if (!startsWith(path, parts) || !endsWith(path, kPartEnding)) continue;
        const size_t digits = path.size() - parts.size() - (sizeof(kPartEnding) - 1);
        pid_t writer = 0;
        const bool isOurs = toNumber(std::string_view(path).substr(parts.size(), digits), writer);
        if (isOurs && kill(writer, 0) != 0 && errno == ESRCH) fs::remove(entry.path(), error);
    }
}

// What a link leads to, so that it stays a link.
std::string targetOf(const std::string& path) {
    std::error_code error;
    const fs::path target = fs::canonical(path, error);
    return error ? path : target.string();
}

}  // namespace

void finishOutput(std::ostream& out, const std::string& name) {
    out.flush();
    if (!out)
        throw OutputError(name + ": could not be written; is the disk full or the reader gone?");
}

void replaceFile(const std::string& path, const std::function<void(const std::string&)>& write) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) return write(path);
    const std::string target = targetOf(path);
    const std::string parts = partsOf(target);
    removeLeftovers(parts);
    const std::string part = parts + std::to_string(getpid()) + kPartEnding;
    try {
        write(part);
        if (fs::exists(status)) fs::permissions(part, status.permissions(), error);
        if (std::rename(part.c_str(), target.c_str()) != 0) {
            throw OutputError(path + ": cannot be put in place: " + std::strerror(errno));
        }
    } catch (...) {
        unlink(part.c_str());
        throw;
    }
}

void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
    replaceFile(path, [&](const std::string& part) {
        std::ofstream file(part, std::ios::binary | std::ios::trunc);
        if (!file) throw OutputError(path + ": cannot be created: " + std::strerror(errno));
        write(file);
        finishOutput(file, path);
    });
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool standardOutputIsTerminal() {
    // https://no-color.org: present and not empty.
    const char* const plain = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) == 1 && (plain == nullptr || *plain == '\0');
}

void complain(const std::string& text) {
    std::fprintf(stderr, "cindral-replay: %s\n", text.c_str());
}

}  // namespace replay
