#pragma once

// Folders of rows to one table.

#include <string>
#include <vector>

namespace replay {

struct GatherResult {
    size_t rows = 0;
    size_t failed = 0;
    size_t captures = 0;
    size_t unreadable = 0;  // files and folders; each was complained of
};

// Writes the table: a SQLite file with a view `fleet` of all there is. The same rows give the same
// bytes, from however many folders and in any order. Throws OutputError, and leaves what was there.
GatherResult gatherRows(const std::vector<std::string>& folders, const std::string& table);

// The view as CSV. Throws OutputError.
void writeCsv(const std::string& table, const std::string& csv);

}  // namespace replay
