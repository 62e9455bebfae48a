#include "cli/advice.h"
#include "cli/command.h"
#include "cli/confirm.h"
#include "cli/keys.h"
#include "cli/values.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

/// What a key means, with what there is to know about its values.
std::string meaningOf(const SettingRow& row) {
  std::string text = row.meaning;
  if (row.kind == SettingRow::Kind::kChoice) text += ": " + listed(offeredValues(row));
  if (row.kind == SettingRow::Kind::kInterface) text += std::string(": ") + kInterfaceForm;
  if (row.route == SettingRow::Route::kIdentify) text += "; to be set alone";
  return text;
}

Json::Value listOfKeys() {
  Json::Value list(Json::arrayValue);
  for (const SettingRow* const row : settableRows()) {
    Json::Value entry;
    entry["key"] = row->path;
    entry["type"] = typeOf(*row);
    entry["meaning"] = meaningOf(*row);
    for (const std::string& value : offeredValues(*row)) entry["values"].append(value);
    list.append(entry);
  }
  Json::Value document;
  document["keys"] = list;
  return document;
}

/// What is odd about values that the daemon has accepted.
void advise(Call& call, const Assignments& assignments) {
  bool hasPort = false;
  for (const auto& [row, value] : assignments) {
    hasPort = hasPort || isPortOfService(row->path);
    if (row != &settings::kAddInterface) continue;
    const auto config = Daemon::read<EthIpV4Cfg>("stored", value);
    for (const std::string& odd : adviceOn(config)) note(odd);
  }
  if (hasPort) noteSharedPorts(call.daemon());
}

}  // namespace

void runSet(Call& call) {
  if (call.has("--list")) {
    return call.output.list(listOfKeys(), "keys", {{"key", "KEY"}, {"type", "TYPE"}, {"meaning", "MEANING"}});
  }
  const Words& words = call.words("keys");
  if (words.empty()) {
    throw usage("there is nothing to set", "sysmgrctl set KEY VALUE; 'sysmgrctl set --list' lists the keys");
  }
  const Assignments assignments = parseAssignments(words);
  if (call.has("--confirm")) {
    Words keys;
    for (const Assignment& assignment : assignments) keys.emplace_back(assignment.row->path);
    changeWithGuardian(call, liveConfiguration(call.daemon()), keys, [&] { send(call.daemon(), assignments); });
  } else {
    send(call.daemon(), assignments);
  }
  Json::Value document;
  for (const auto& [row, value] : assignments) document["set"][row->path] = value;
  call.output.page(document, [&] { call.output.leaves(document["set"]); });
  call.output.flush();
  advise(call, assignments);
}

}  // namespace zel::ctl
