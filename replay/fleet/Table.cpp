#include "replay/fleet/Table.h"

#include "replay/base/Error.h"
#include "replay/base/Text.h"

namespace replay {

namespace {

// SQLite keeps it at this place in the file, the highest byte first.
constexpr char kApplication[] = "Cndr";
constexpr int kApplicationId = 0x436e6472;
constexpr size_t kApplicationAt = 68;

[[noreturn]] void fail(sqlite3* database) {
    const char* const file = sqlite3_db_filename(database, "main");
    throw OutputError(std::string(file == nullptr ? "" : file) + ": " + sqlite3_errmsg(database));
}

std::string between(char quote, const std::string& text) {
    std::string quoted(1, quote);
    for (const char c : text) quoted += c == quote ? std::string(2, c) : std::string(1, c);
    return quoted + quote;
}

}  // namespace

bool isTable(std::string_view firstBytes) {
    return startsWith(firstBytes, "SQLite format 3") && firstBytes.size() > kApplicationAt &&
           startsWith(firstBytes.substr(kApplicationAt), kApplication);
}

Statement::Statement(const Table& table, const std::string& sql) {
    if (sqlite3_prepare_v2(table.handle(), sql.c_str(), -1, &mStatement, nullptr) != SQLITE_OK) {
        fail(table.handle());
    }
}

bool Statement::run(std::initializer_list<std::string_view> texts) {
    sqlite3_reset(mStatement);
    int parameter = 0;
    for (const std::string_view text : texts) {
        sqlite3_bind_text(mStatement, ++parameter, text.data(), static_cast<int>(text.size()),
                          SQLITE_STATIC);
    }
    return step();
}

bool Statement::step() {
    const int result = sqlite3_step(mStatement);
    if (result == SQLITE_ROW) return true;
    if (result != SQLITE_DONE) fail(sqlite3_db_handle(mStatement));
    sqlite3_reset(mStatement);
    return false;
}

std::string Statement::text(int column) const {
    const unsigned char* const text = sqlite3_column_text(mStatement, column);
    return text == nullptr ? "" : reinterpret_cast<const char*>(text);
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
        run("PRAGMA page_size=4096; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF; "
            "PRAGMA application_id=" +
            std::to_string(kApplicationId));
    }
}

void Table::run(const std::string& sql) const {
    if (sqlite3_exec(mDatabase, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail(mDatabase);
    }
}

std::string Table::valueOf(const std::string& sql) const {
    Statement statement(*this, sql);
    return statement.step() ? statement.text(0) : "";
}

std::string sqlName(const std::string& name) {
    return between('"', name);
}

std::string sqlText(const std::string& text) {
    return between('\'', text);
}

}  // namespace replay
