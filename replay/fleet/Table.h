#pragma once

// The table of a fleet: a SQLite file.

#include <sqlite3.h>

#include <initializer_list>
#include <string>
#include <string_view>

namespace replay {

// Throws OutputError: what goes wrong is the file.
class Table {
  public:
    // kNew writes a file that must not be there yet, and that is only whole once it is closed. Without a
    // path the file goes with the table.
    enum class Use { kNew, kRead };

    Table(const std::string& path, Use use);
    ~Table() { sqlite3_close(mDatabase); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void run(const std::string& sql) const;
    // What a query gives that gives one value.
    std::string valueOf(const std::string& sql) const;
    sqlite3* handle() const { return mDatabase; }

  private:
    sqlite3* mDatabase = nullptr;
};

// Of the beginning of a file: whether a Table wrote it.
bool isTable(std::string_view firstBytes);

// One statement, used over and over. Columns count from 0.
class Statement {
  public:
    Statement(const Table& table, const std::string& sql);
    ~Statement() { sqlite3_finalize(mStatement); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    // The texts, which have to live on, become its parameters. True if it gives a row.
    bool run(std::initializer_list<std::string_view> texts);
    // The next row. False at the end.
    bool step();
    int columns() const { return sqlite3_column_count(mStatement); }
    const char* name(int column) const { return sqlite3_column_name(mStatement, column); }
    std::string text(int column) const;  // empty if there is nothing
    double number(int column) const { return sqlite3_column_double(mStatement, column); }

  private:
    sqlite3_stmt* mStatement = nullptr;
};

// A name, or a text, in SQL, whatever is in it.
std::string sqlName(const std::string& name);
std::string sqlText(const std::string& text);

}  // namespace replay
