#include "types/whitelist.h"

#include "cli/advice.h"
#include "cli/command.h"
#include "cli/values.h"

namespace zel::ctl {

namespace {

/// The entry that the words describe.
WhiteListEntry describedEntry(const Call& call, bool enabled) {
  const Network network = parseNetwork(call.word("address"), call.word("mask"));
  WhiteListEntry entry;
  entry.ip = network.address.getAddress();
  entry.mask = network.mask.getAddress();
  entry.enabled = enabled;
  return entry;
}

void change(Call& call, const std::string& verb, const Operation& operation, bool enabled, const char* done) {
  const WhiteListEntry entry = describedEntry(call, enabled);
  Json::Value document;
  entry.Serialize(document[done]);
  Json::Value request;
  request[kWhitelistMember].append(document[done]);
  const std::string range = entry.getIpStr() + " " + entry.getMaskStr();
  call.daemon().send(verb + " the range " + range, operation, request);
  if (std::string(done) == "removed") document[done].removeMember("enabled");
  call.output.page(document, [&] { call.output.line(std::string(done) + " " + range); });
  if (std::string(done) != "added") return;
  for (const std::string& odd : adviceOn(entry)) note(odd);
}

}  // namespace

void runWhitelistList(Call& call) {
  Json::Value document;
  document[kWhitelistMember] = call.daemon().whitelist();
  call.output.list(document, kWhitelistMember, {{"ip", "ADDRESS"}, {"mask", "MASK"}, {"enabled", "ENABLED"}});
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
