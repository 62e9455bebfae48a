// Reads docs/protocol.md from the standard input and prints it with its tables made anew from the rows of
// client/commands.h and types/settings.h. A table follows the line <!-- docs/make_protocol.cpp: NAME --> and ends at an
// empty line.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <iostream>
#include <iterator>
#include <string>

#include "client/commands.h"
#include "docs/setting_texts.h"
#include "types/settings.h"

namespace {

using zel::SettingRow;
using Route = SettingRow::Route;

void printCommands() {
  std::printf("| id | name | member of the answer |\n|---|---|---|\n");
  for (const zel::CommandRow& row : zel::kCommands) {
    const std::string member = row.payload == nullptr ? "" : "`\"" + std::string(row.payload) + "\"`";
    std::printf("| %d | %s | %s |\n", int{row.id}, row.name, member.c_str());
  }
}

/// Calls `use` with each row of one of the routes and with the name of its JSON type.
void forEachOf(std::initializer_list<Route> routes, const std::function<void(const SettingRow&, const char*)>& use) {
  zel::settings::forEach([&](const auto& row) {
    for (const Route route : routes) {
      if (row.route == route) use(row, zel::docs::typeName(row));
    }
  });
}

void printKeys() {
  std::printf("| key | type | values | place | meaning |\n|---|---|---|---|---|\n");
  forEachOf({Route::kKey, Route::kListChange}, [](const SettingRow& row, const char* type) {
    const bool isPlace = row.route == Route::kKey;
    std::printf("| `%s` | %s | %s | `%s` | %s |\n", row.key, type, zel::docs::valuesOf(row).c_str(),
                isPlace ? row.path : "ethipv4", row.meaning);
  });
}

void printMembers() {
  std::printf("| member | type | values | meaning |\n|---|---|---|---|\n");
  forEachOf({Route::kBlock}, [](const SettingRow& row, const char* type) {
    std::printf("| `%s` | %s | %s | %s |\n", row.path, type, zel::docs::valuesOf(row).c_str(), row.meaning);
  });
}

void printRest() {
  std::printf("| place | type | meaning |\n|---|---|---|\n");
  forEachOf({Route::kNone}, [](const SettingRow& row, const char* type) {
    std::printf("| `%s` | %s | %s |\n", row.path, type, row.meaning);
  });
}

struct Table {
  const char* marker;
  void (*print)();
};

constexpr Table kTables[] = {
    {"<!-- docs/make_protocol.cpp: commands -->", printCommands},
    {"<!-- docs/make_protocol.cpp: keys -->", printKeys},
    {"<!-- docs/make_protocol.cpp: members of blocks -->", printMembers},
    {"<!-- docs/make_protocol.cpp: values that no request sets -->", printRest},
};

}  // namespace

int main() {
  std::size_t tables = 0;
  bool inTable = false;
  for (std::string line; std::getline(std::cin, line);) {
    inTable = inTable && !line.empty();
    if (inTable) continue;
    std::printf("%s\n", line.c_str());
    for (const Table& table : kTables) {
      if (line != table.marker) continue;
      table.print();
      inTable = true;
      ++tables;
    }
  }
  if (tables == std::size(kTables)) return EXIT_SUCCESS;
  std::fprintf(stderr, "The page has %zu of %zu tables.\n", tables, std::size(kTables));
  return EXIT_FAILURE;
}
