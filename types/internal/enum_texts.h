#pragma once

#include <cstring>
#include <optional>
#include <string_view>

namespace zel {

/// Whether readers accept the text of a row. They accept its alias in any case.
enum class Text { kReadAndWritten, kOnlyWritten };

/// A row of the table of an enumeration's texts, which writers and readers share.
template <class Enum>
struct EnumRow {
  Enum value;
  const char* text;
  const char* alias = nullptr;  ///< a further text that is read, and never written
  Text use = Text::kReadAndWritten;
};

/// The row of a value; null when the table has none.
template <class Table, class Enum>
const auto* rowOf(const Table& table, Enum value) {
  for (const auto& row : table) {
    if (row.value == value) return &row;
  }
  return static_cast<decltype(&table[0])>(nullptr);
}

template <class Table, class Enum>
const char* textOf(const Table& table, Enum value, const char* otherwise) {
  const auto* const row = rowOf(table, value);
  return row ? row->text : otherwise;
}

template <class Enum, class Table>
std::optional<Enum> valueOf(const Table& table, std::string_view text) {
  for (const auto& row : table) {
    if ((row.use == Text::kReadAndWritten && text == row.text) || (row.alias && text == row.alias)) return row.value;
  }
  return std::nullopt;
}

}  // namespace zel
