#include "cli/keys.h"

#include <set>

#include "cli/suggest.h"
#include "cli/values.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

using Kind = SettingRow::Kind;
using Route = SettingRow::Route;

std::string lastStep(const std::string& path) { return path.substr(path.rfind('/') + 1); }

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
                guess.empty() ? "'sysmgrctl set --list' lists the keys" : guess)
      .about(path);
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

std::string typedText(const SettingRow& row, const Json::Value& value) {
  if (row.kind == Kind::kSwitch) return switchWords()[value.asBool() ? 0 : 1];
  return value.asString();
}

Assignments parseAssignments(const Words& words) {
  Assignments assignments;
  std::set<std::string> keys;
  for (auto word = words.begin(); word != words.end(); ++word) {
    const std::size_t equals = word->find('=');
    const bool isJoined = equals != std::string::npos;
    const SettingRow& row = rowOf(word->substr(0, equals));
    if (!keys.insert(row.path).second) throw usage(std::string(row.path) + " is given twice").about(row.path);
    if (!isJoined && ++word == words.end()) {
      throw usage(std::string(row.path) + " has no value", "sysmgrctl set KEY VALUE, or KEY=VALUE").about(row.path);
    }
    const std::string text = isJoined ? word->substr(equals + 1) : *word;
    assignments.push_back({&row, valueFor(row.path, [&] { return parseSetting(row, text); })});
  }
  for (const auto& [row, value] : assignments) {
    if (row->route != Route::kIdentify || assignments.size() == 1) continue;
    throw usage(std::string(row->path) + " is set with a command of its own: set it alone").about(row->path);
  }
  return assignments;
}

void addTo(Json::Value& request, const Assignment& assignment) {
  const SettingRow& row = *assignment.row;
  Json::Value& member = request[row.key];
  (row.route == Route::kBlock ? member[lastStep(row.path)] : member) = assignment.value;
}

void send(Daemon& daemon, const Assignments& assignments) {
  Words paths;
  Operation operation = &SysMgrJsonClient::setSysMgrParameter;
  for (const auto& [row, value] : assignments) {
    paths.emplace_back(row->path);
    if (row->route == Route::kIdentify) operation = &SysMgrJsonClient::setIdentifyLeds;
  }
  Json::Value request(Json::objectValue);
  for (const Assignment& assignment : assignments) addTo(request, assignment);
  try {
    daemon.send("set " + listed(paths), operation, request);
  } catch (const Failure& failure) {
    throw paths.size() == 1 ? failure.about(paths.front()) : failure;
  }
}

}  // namespace zel::ctl
