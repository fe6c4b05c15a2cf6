#pragma once

// Folders of rows to one table.

#include <string>
#include <string_view>
#include <vector>

#include "replay/fleet/Table.h"

namespace replay {

struct GatherResult {
    size_t rows = 0;
    size_t failed = 0;
    size_t captures = 0;
    size_t unreadable = 0;  // files and folders; each was complained of
};

// Fills a new table, with a view `fleet` of all there is. The same rows give the same bytes, from
// however many folders and in any order. Memory does not depend on their number. Throws OutputError.
GatherResult gatherRows(const std::vector<std::string>& folders, const Table& table);

// The view as CSV. Throws OutputError.
void writeCsv(const Table& table, const std::string& csv);

// Of the beginning of a file: whether writeCsv wrote it.
bool isTableCsv(std::string_view firstBytes);

}  // namespace replay
