#include "replay/base/Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "replay/base/Error.h"

namespace replay {

void finishOutput(std::ostream& out, const std::string& name) {
    out.flush();
    if (!out)
        throw OutputError(name + ": could not be written; is the disk full or the reader gone?");
}

void writeFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) throw OutputError(path + ": cannot be created: " + std::strerror(errno));
    write(file);
    finishOutput(file, path);
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
