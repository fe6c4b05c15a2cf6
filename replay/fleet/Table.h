#pragma once

// The table of a fleet: a SQLite file.

#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace replay {

// One statement, used over and over. Parameters and columns count from 0.
class Statement {
  public:
    Statement(sqlite3* database, const std::string& sql);
    ~Statement() { sqlite3_finalize(mStatement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(int parameter, const std::string& text);
    void bind(int parameter, std::optional<double> number);
    // False at the end, after which it can be used anew.
    bool step();

    int columns() const { return sqlite3_column_count(mStatement); }
    const char* name(int column) const { return sqlite3_column_name(mStatement, column); }
    // Empty if there is nothing.
    std::string text(int column) const;
    std::optional<double> number(int column) const;

  private:
    sqlite3_stmt* mStatement = nullptr;
};

// Throws OutputError: what goes wrong is the file.
class Table {
  public:
    // kNew writes a file that must not be there yet; nothing else may read it before it is done.
    enum class Use { kNew, kRead };

    Table(const std::string& path, Use use);
    ~Table() { sqlite3_close(mDatabase); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void run(const std::string& sql);
    sqlite3* handle() const { return mDatabase; }

  private:
    sqlite3* mDatabase = nullptr;
};

// A name in SQL, whatever is in it.
std::string sqlName(const std::string& name);

}  // namespace replay
