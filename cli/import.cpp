#include <algorithm>

#include "cli/advice.h"
#include "cli/atomic_file.h"
#include "cli/change_plan.h"
#include "cli/command.h"
#include "cli/confirm.h"
#include "cli/values.h"
#include "common/shared/format_text.h"

namespace zel::ctl {

namespace {

Configuration readFile(const Call& call, const std::string& path) {
  return parseConfiguration(textOfFile(path, call.end()), path);
}

Json::Value documentOf(const Differences& differences) {
  Json::Value list(Json::arrayValue);
  for (const Difference& difference : differences) {
    Json::Value row;
    row["key"] = difference.key;
    if (difference.from) row["old"] = *difference.from;
    if (difference.to) row["new"] = *difference.to;
    list.append(row);
  }
  Json::Value document;
  document["differences"] = list;
  return document;
}

std::string shown(const std::optional<std::string>& text) { return !text ? "-" : text->empty() ? "\"\"" : *text; }

void show(Output& output, const Differences& differences) {
  for (const Difference& difference : differences) {
    output.line(difference.key + "  " + shown(difference.from) + " -> " + shown(difference.to));
  }
}

void refuseOtherModel(const Call& call, const Configuration& file, const Configuration& live) {
  if (file.model.empty() || file.model == live.model || call.has("--other-model")) return;
  throw Failure(Exit::kOther, "the file is for the model " + file.model + ", and this board is the model " + live.model,
                "nothing was changed; '--other-model' imports it all the same")
      .about("board-model");
}

/// Without those that no request can set.
Differences settable(Differences differences) {
  const Words keys = unsettable(differences);
  const auto isUnsettable = [&keys](const Difference& each) { return contains(keys, each.key); };
  differences.erase(std::remove_if(differences.begin(), differences.end(), isUnsettable), differences.end());
  if (!keys.empty()) note("no request can unset " + listed(keys) + ": the board keeps what it has");
  return differences;
}

/// Reads the configuration again, since a daemon may take a value and not keep it.
void checkResult(Daemon& daemon, const Configuration& file) {
  Differences left = differencesOf(liveConfiguration(daemon), file);
  const Words keys = unsettable(left);
  Words texts;
  for (const Difference& each : left) {
    if (!contains(keys, each.key)) texts.push_back(each.key);
  }
  if (texts.empty()) return;
  throw Failure(Exit::kOther, "the daemon took every request, but it does not have the new values of " + listed(texts),
                "'sysmgrctl diff FILE' shows them; did another program change them?");
}

void apply(Call& call, const Configuration& live, const Configuration& file, const Differences& differences) {
  if (differences.empty()) return;
  Words keys;
  for (const Difference& difference : differences) keys.push_back(difference.key);
  changeWithGuardian(call, live, keys, [&] {
    carryOut(call.daemon(), stepsOf(differences));
    checkResult(call.daemon(), file);
  });
}

Words oddIn(const Difference& difference) {
  if (!difference.to) return {};
  const std::string interface = elementOf("ethipv4", difference.key);
  if (!interface.empty()) return adviceOn(parseInterface(interface, *difference.to));
  const std::string address = elementOf(kWhitelistMember, difference.key);
  return address.empty() ? Words() : adviceOn(entryOf(address, *difference.to));
}

/// Names what is odd about the new values.
void advise(Call& call, const Differences& differences, bool isDone) {
  bool hasPort = false;
  for (const Difference& difference : differences) {
    hasPort = hasPort || isPortOfService(difference.key);
    for (const std::string& odd : oddIn(difference)) note(difference.key + ": " + odd);
  }
  if (hasPort && isDone) noteSharedPorts(call.daemon());
}

/// What one side of `diff` names.
Configuration sideOf(Call& call, const std::string& name) {
  if (name == "live") return liveConfiguration(call.daemon());
  if (name == "factory") return factoryConfiguration(call.daemon().record<BoardModel>("model"));
  return readFile(call, name);
}

}  // namespace

void runExport(Call& call) {
  const std::string text = textOf(liveConfiguration(call.daemon()));
  const std::string file = call.word("file");
  if (!file.empty() && file != "-") return replaceFile(file, text);
  Json::Value document;
  document["configuration"] = text;
  call.output.page(document, [&] { call.output.verbatim(text); });
}

void runImport(Call& call) {
  const Configuration file = readFile(call, call.word("file"));
  const Configuration live = liveConfiguration(call.daemon());
  refuseOtherModel(call, file, live);
  const Differences differences = settable(differencesOf(live, file));
  const bool isDone = !call.has("--dry-run");
  Json::Value document = documentOf(differences);
  document["imported"] = isDone;
  if (!call.output.isJson()) show(call.output, differences);
  call.output.flush();  // what will change is seen before it does
  if (isDone) {
    apply(call, live, file, differences);
  }
  call.output.page(document, [] {});
  call.output.flush();
  advise(call, differences, isDone);
}

void runDiff(Call& call) {
  const Words& sides = call.words("sides");
  const Configuration from = sideOf(call, sides.empty() ? "factory" : sides[0]);
  const Configuration to = sideOf(call, sides.size() < 2 ? "live" : sides[1]);
  Differences differences = differencesOf(from, to);
  if (!from.model.empty() && !to.model.empty() && from.model != to.model) {
    differences.insert(differences.begin(), {"board-model", from.model, to.model});
  }
  call.output.page(documentOf(differences), [&] { show(call.output, differences); });
  if (differences.empty()) return;
  const std::string count = std::to_string(differences.size());
  throw Failure(Exit::kOther, count + (differences.size() == 1 ? " value differs" : " values differ"));
}

}  // namespace zel::ctl
