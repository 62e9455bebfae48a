#include "cli/keys.h"

#include <optional>

#include "cli/suggest.h"
#include "cli/values.h"

namespace zel::ctl {

namespace {

using Kind = SettingRow::Kind;
using Route = SettingRow::Route;

std::string lastStep(const std::string& path) { return path.substr(path.rfind('/') + 1); }
std::string firstStep(const std::string& path) { return path.substr(0, path.find('/')); }

Words choicesOf(const SettingRow& row) {
  const std::vector<const char*> choices = row.choices();
  return {choices.begin(), choices.end()};
}

/// The row of a key. @throws Failure with a suggestion when there is none
const SettingRow& rowOf(const std::string& path) {
  Words paths;
  for (const SettingRow* const row : settableRows()) {
    if (path == row->path) return *row;
    paths.emplace_back(row->path);
  }
  const std::string guess = didYouMean(path, paths);
  throw Failure(Exit::kNotFound, "there is no key '" + path + "' to set",
                guess.empty() ? "'sysmgrctl set --list' lists the keys" : guess);
}

struct Assignment {
  const SettingRow& row;
  Json::Value value;
};

/// Reads everything before anything is sent, so that a slip in the last value leaves the first ones unset.
std::vector<Assignment> assignmentsOf(const Words& keysAndValues) {
  std::vector<Assignment> assignments;
  for (std::size_t i = 0; i + 1 < keysAndValues.size(); i += 2) {
    const SettingRow& row = rowOf(keysAndValues[i]);
    assignments.push_back({row, valueFor(row.path, [&] { return parseSetting(row, keysAndValues[i + 1]); })});
    if (row.route == Route::kIdentify && keysAndValues.size() > 2) {
      throw usage(std::string(row.path) + " is set with a command of its own: set it alone");
    }
  }
  if (keysAndValues.size() % 2 == 0) return assignments;
  throw usage(rowOf(keysAndValues.back()).path + std::string(" has no value"),
              "sysmgrctl set KEY VALUE [KEY VALUE ...]");
}

/// The block that a value is in travels whole, so the values beside it are read from the daemon first.
Json::Value requestOf(Daemon& daemon, const std::vector<Assignment>& assignments) {
  Json::Value request(Json::objectValue);
  std::optional<Json::Value> stored;
  for (const auto& [row, value] : assignments) {
    if (row.route != Route::kBlock) {
      request[row.key] = value;
      continue;
    }
    if (!stored) stored = daemon.get("stored");
    const std::string block = firstStep(row.path);
    const std::string member = lastStep(row.path);
    reading("stored", [&, &row = row, &value = value] {
      if (!request.isMember(row.key)) request[row.key] = (*stored)[block];
      request[row.key][member] = value;
    });
  }
  return request;
}

}  // namespace

std::vector<const SettingRow*> settableRows() {
  std::vector<const SettingRow*> rows;
  settings::forEach([&rows](const SettingRow& row) {
    if (row.route != Route::kNone && row.kind != Kind::kBlock) rows.push_back(&row);
  });
  return rows;
}

std::string typeOf(const SettingRow& row) {
  if (row.kind != Kind::kNumber) return row.values.name;
  return std::to_string(row.values.least) + ".." + std::to_string(row.values.most);
}

Words offeredValues(const SettingRow& row) {
  if (row.kind == Kind::kSwitch) return switchWords();
  if (row.values.name == std::string(settings::values::kInterfaceOrAll.name)) return {"all"};
  return choicesOf(row);
}

Json::Value parseSetting(const SettingRow& row, const std::string& text) {
  switch (row.kind) {
    case Kind::kSwitch: return parseSwitch(text);
    case Kind::kNumber: return Json::Int64{parseNumber(text, 0, row.highest)};
    case Kind::kChoice: return parseChoice(text, choicesOf(row));
    case Kind::kInterface: return settings::kAddInterface.toJson(parseInterface(text));
    case Kind::kText:
    case Kind::kBlock:
    case Kind::kInterfaceList: break;
  }
  return text;
}

Json::Value setKeys(Daemon& daemon, const Words& keysAndValues) {
  const std::vector<Assignment> assignments = assignmentsOf(keysAndValues);
  Json::Value values(Json::objectValue);
  Words paths;
  Operation operation = &SysMgrJsonClient::setSysMgrParameter;
  for (const auto& [row, value] : assignments) {
    values[row.path] = value;
    paths.emplace_back(row.path);
    if (row.route == Route::kIdentify) operation = &SysMgrJsonClient::setIdentifyLeds;
  }
  daemon.send("set " + joined(paths), operation, requestOf(daemon, assignments));
  return values;
}

}  // namespace zel::ctl
