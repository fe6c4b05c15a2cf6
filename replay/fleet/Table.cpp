#include "replay/fleet/Table.h"

#include <cmath>

#include "replay/base/Error.h"
#include "replay/base/Output.h"

namespace replay {

namespace {

[[noreturn]] void fail(sqlite3* database) {
    const char* const file = sqlite3_db_filename(database, "main");
    throw OutputError(std::string(file == nullptr ? "" : file) + ": " + sqlite3_errmsg(database));
}

}  // namespace

Statement::Statement(const Table& table, const std::string& sql) {
    if (sqlite3_prepare_v2(table.handle(), sql.c_str(), -1, &mStatement, nullptr) != SQLITE_OK) {
        fail(table.handle());
    }
}

void Statement::run(const std::vector<std::string>& texts, const std::vector<double>& numbers) {
    int parameter = 0;
    for (const std::string& text : texts) {
        sqlite3_bind_text(mStatement, ++parameter, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    // SQLite keeps no number that is none: it becomes nothing.
    for (const double number : numbers) sqlite3_bind_double(mStatement, ++parameter, number);
    step();
}

bool Statement::step() {
    const int result = sqlite3_step(mStatement);
    if (result == SQLITE_ROW) return true;
    sqlite3_reset(mStatement);
    if (result != SQLITE_DONE) fail(sqlite3_db_handle(mStatement));
    return false;
}

std::string Statement::text(int column) const {
    const unsigned char* const text = sqlite3_column_text(mStatement, column);
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

double Statement::number(int column) const {
    return sqlite3_column_type(mStatement, column) == SQLITE_NULL
                   ? NAN
                   : sqlite3_column_double(mStatement, column);
}

Table::Table(const std::string& path, Use use) {
    const int flags =
            use == Use::kNew ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    if (sqlite3_open_v2(path.c_str(), &mDatabase, flags, nullptr) != SQLITE_OK) {
        const std::string cause = sqlite3_errmsg(mDatabase);
        sqlite3_close(mDatabase);
        throw OutputError(path + ": " + cause);
    }
    // Nobody needs half of a table, and the same pages must come of the same rows everywhere.
    if (use == Use::kNew) {
        run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF");
    }
}

void Table::run(const std::string& sql) {
    if (sqlite3_exec(mDatabase, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(mDatabase);
    }
}

std::string sqlName(const std::string& name) {
    std::string quoted = "\"";
    for (const char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

}  // namespace replay
