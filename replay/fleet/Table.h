#pragma once

// The table of a fleet: a SQLite file.

#include <sqlite3.h>

#include <string>
#include <vector>

namespace replay {

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

// One statement, used over and over. Columns count from 0.
class Statement {
  public:
    Statement(const Table& table, const std::string& sql);
    ~Statement() { sqlite3_finalize(mStatement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // Runs it with these, of which the later ones may be numbers; not a number is nothing.
    void run(const std::vector<std::string>& texts, const std::vector<double>& numbers);

    // The next row. False at the end.
    bool step();
    int columns() const { return sqlite3_column_count(mStatement); }
    const char* name(int column) const { return sqlite3_column_name(mStatement, column); }
    std::string text(int column) const;  // empty if there is nothing
    double number(int column) const;     // not a number if there is nothing

  private:
    sqlite3_stmt* mStatement = nullptr;
};

// A name in SQL, whatever is in it.
std::string sqlName(const std::string& name);

}  // namespace replay
