#include "conformance/session.h"

#include <set>

#include "client/commands.h"

namespace zel::conformance {

namespace {
constexpr std::size_t kMostFailures = 8;  // of one check
}

Session::Session(const Options& options)
    : options_(options),
      client_(context_, options.requestEndpoint, options.patience, observer_),
      other_(context_, options.requestEndpoint, options.patience, observer_),
      follower_(context_, options.notificationEndpoint, observer_) {
  follower_.subscribe("");
}

void Session::beginCheck() {
  failures_.clear();
  skipped_.clear();
}

void Session::fail(const std::string& text) {
  if (failures_.size() < kMostFailures) failures_.push_back(text);
}

bool Session::expect(bool isTrue, const std::string& text) {
  if (!isTrue) fail(text);
  return isTrue;
}

bool Session::expectRefused(const Answer& answer) {
  return expect(answer.refused(), answer.request + " was not refused: " + answer.text());
}

bool Session::expectAccepted(const Answer& answer) {
  return expect(answer.accepted(), answer.request + " was not accepted: " + answer.text());
}

Json::Value Session::query(int id) {
  const CommandRow* const row = findCommand(static_cast<SysMgrCommands::sysmgr_msg_t>(id));
  const Answer answer = client_.ask(id);
  if (!answer.accepted() || row == nullptr || row->payload == nullptr) return {};
  return answer.document[row->payload];
}

Json::Value Session::stored() { return query(SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS); }
Json::Value Session::whitelist() { return query(SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST); }

Answer Session::set(const std::string& key, const Json::Value& value) {
  Json::Value body(Json::objectValue);
  body[key] = value;
  return client_.ask(SysMgrCommands::SYSMGR_SET_PARAMETER, body);
}

Answer Session::changeWhitelist(int id, const std::string& ip, const std::string& mask, bool enabled) {
  Json::Value entry(Json::objectValue);
  entry["ip"] = ip;
  entry["mask"] = mask;
  entry["enabled"] = enabled;
  Json::Value body(Json::objectValue);
  body[kWhitelistMember].append(entry);
  return client_.ask(id, body);
}

std::vector<std::string> Session::freeGroups(std::size_t count) {
  std::set<std::string> taken;
  for (const Json::Value& entry : whitelist()) {
    if (entry.isObject() && entry["ip"].isString()) taken.insert(entry["ip"].asString());
  }
  std::vector<std::string> groups;
  for (int last = 1; last < 255 && groups.size() < count; ++last) {
    const std::string group = "239.201.77." + std::to_string(last);
    if (taken.count(group) == 0) groups.push_back(group);
  }
  groups.resize(count, "239.201.78.1");
  return groups;
}

}  // namespace zel::conformance
