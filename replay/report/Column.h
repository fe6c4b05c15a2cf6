#pragma once

// A list of integers as short text that a browser unpacks quickly: base64 of one zigzag varint a
// value, each the difference to the value before. Exact, and about three bytes for a time in ns.

#include <cstdint>
#include <string>

namespace replay {

class Column {
  public:
    void add(int64_t value);
    std::string text() const;

  private:
    std::string mBytes;
    int64_t mPrevious = 0;
};

template <typename List, typename Value>
std::string columnOf(const List& list, Value&& value) {
    Column column;
    for (const auto& item : list) column.add(value(item));
    return column.text();
}

}  // namespace replay
