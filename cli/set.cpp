#include "cli/command.h"
#include "cli/keys.h"

namespace zel::ctl {

namespace {

/// What a key means, with its values where the name of its type does not tell them.
std::string meaningOf(const Key& key, const Words& values) {
  const bool typeTells = values.empty() || std::string(key.type.name).find(values.front()) != std::string::npos;
  std::string text = key.meaning;
  if (typeTells) return text;
  for (const std::string& value : values) text += (&value == &values.front() ? ": " : ", ") + value;
  return text;
}

Json::Value listOfKeys() {
  Json::Value list(Json::arrayValue);
  for (const Key& key : settableKeys()) {
    Json::Value row;
    row["key"] = key.path;
    row["type"] = key.type.name;
    const Words values = key.type.values == nullptr ? Words() : key.type.values();
    row["meaning"] = meaningOf(key, values);
    for (const std::string& value : values) row["values"].append(value);
    list.append(row);
  }
  Json::Value document;
  document["keys"] = list;
  return document;
}

}  // namespace

void runSet(Call& call) {
  if (call.has("--list")) {
    return call.output.list(listOfKeys(), "keys", {{"key", "KEY"}, {"type", "TYPE"}, {"meaning", "MEANING"}});
  }
  const Words& words = call.words("KEY");
  if (words.empty())
    throw usage("there is nothing to set", "sysmgrctl set KEY VALUE; 'sysmgrctl set --list' lists the keys");
  Json::Value document;
  document["set"] = setKeys(call.board(), words);
  call.output.page(document, [&] { call.output.leaves(document["set"]); });
}

}  // namespace zel::ctl
