#include "types/whitelist.h"

#include "cli/command.h"
#include "cli/keys.h"

namespace zel::ctl {

namespace {

/// The entry that ADDRESS and MASK describe, checked: the library would send an address that is none as 0.0.0.0.
Json::Value describedEntry(const Call& call, bool enabled) {
  const std::string range = call.word("ADDRESS");
  const std::size_t slash = range.find('/');
  Json::Value entry;
  if (slash == std::string::npos) {
    if (!call.has("MASK")) throw usage("the mask is missing", "ADDRESS/PREFIX or ADDRESS MASK: 239.1.0.0/16");
    entry["ip"] = parseAddress(range);
    entry["mask"] = parseAddress(call.word("MASK"));
  } else {
    if (call.has("MASK")) throw usage("the mask is given twice, as /PREFIX and apart");
    entry["ip"] = parseAddress(range.substr(0, slash));
    entry["mask"] = maskOfPrefix(range.substr(slash + 1));
  }
  entry["enabled"] = enabled;
  return entry;
}

void change(Call& call, const std::string& verb, const Board::Command& command, bool enabled, const char* done) {
  const Json::Value entry = describedEntry(call, enabled);
  Json::Value request;
  request["white-list"].append(entry);
  const std::string range = entry["ip"].asString() + " " + entry["mask"].asString();
  call.board().send(verb + " the range " + range, command, request);
  Json::Value document;
  document[done] = entry;
  if (std::string(done) == "removed") document[done].removeMember("enabled");
  call.output.page(document, [&] { call.output.line(std::string(done) + " " + range); });
}

}  // namespace

void runWhitelistList(Call& call) {
  Json::Value document;
  document["white-list"] = call.board().whitelist();
  call.output.list(document, "white-list", {{"ip", "ADDRESS"}, {"mask", "MASK"}, {"enabled", "ENABLED"}});
}

void runWhitelistAdd(Call& call) {
  change(call, "add", &SysMgrJsonClient::addMcastWhitelist, !call.has("--disabled"), "added");
}
void runWhitelistRemove(Call& call) {
  change(call, "remove", &SysMgrJsonClient::removeMcastWhitelist, false, "removed");
}
void runWhitelistEnable(Call& call) {
  change(call, "enable", &SysMgrJsonClient::enableMcastWhitelist, true, "changed");
}
void runWhitelistDisable(Call& call) {
  change(call, "disable", &SysMgrJsonClient::enableMcastWhitelist, false, "changed");
}

}  // namespace zel::ctl
