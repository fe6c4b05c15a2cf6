#include "replay/program/Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "replay/program/Tasks.h"

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

}  // namespace replay
