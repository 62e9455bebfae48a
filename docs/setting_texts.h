#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include "types/settings.h"

// How the pages show a row of types/settings.h.

namespace zel::docs {

inline const char* typeName(const SettingRow& row) {
  using Kind = SettingRow::Kind;
  switch (row.kind) {
    case Kind::kSwitch: return "boolean";
    case Kind::kNumber: return row.highest == std::numeric_limits<std::uint32_t>::max() ? "unsigned" : "integer";
    case Kind::kText:
    case Kind::kChoice: return "text";
    case Kind::kBlock:
    case Kind::kInterface: return "object";
    case Kind::kInterfaceList: return "array";
  }
  return nullptr;
}

inline std::string rangeOf(const SettingRow& row) {
  return std::to_string(row.values.least) + " to " + std::to_string(row.values.most);
}

/// "interface or all, " of "interface|all", which would end a column of the table; empty for any text.
inline std::string nameOf(const SettingRow& row) {
  std::string name = row.values.name;
  if (name == "text") return "";
  if (const std::size_t bar = name.find('|'); bar != std::string::npos) name.replace(bar, 1, " or ");
  return name + ", ";
}

inline std::string valuesOf(const SettingRow& row) {
  using Kind = SettingRow::Kind;
  switch (row.kind) {
    case Kind::kSwitch: return "`true`, `false`";
    case Kind::kNumber: return rangeOf(row) + (*row.values.unit != '\0' ? " " : "") + row.values.unit;
    case Kind::kText: return nameOf(row) + rangeOf(row) + " bytes";
    case Kind::kChoice: break;
    case Kind::kBlock: return "members as below";
    case Kind::kInterface: return "as an element of `ethipv4`";
    case Kind::kInterfaceList: return "";
  }
  std::string texts;
  for (const char* const text : row.choices()) texts += std::string(texts.empty() ? "`\"" : ", `\"") + text + "\"`";
  return texts;
}

}  // namespace zel::docs
