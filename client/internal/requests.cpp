#include "client/requests.h"

#include "client/commands.h"
#include "common/shared/json_form.h"

namespace zel::requests {

namespace {

using Command = SysMgrCommands::sysmgr_msg_t;

void readWhole(Json::Value& answer, Json::Value& value) { value = answer; }

Request<void> changeWhitelist(Command command, const WhiteListEntry& entry) {
  Request<void> request{command, {}};
  entry.Serialize(request.body[Json::StaticString(kWhitelistMember)][0]);
  return request;
}

}  // namespace

Request<void> addInterface(const EthIpV4Cfg& configuration) {
  Request<void> request{SysMgrCommands::SYSMGR_SET_PARAMETER, {}};
  request.body[Json::StaticString(settings::kAddInterface.key)] = settings::kAddInterface.toJson(configuration);
  return request;
}

Request<void> removeInterface(const std::string& name) {
  Request<void> request{SysMgrCommands::SYSMGR_SET_PARAMETER, {}};
  request.body[Json::StaticString(settings::kRemoveInterface.key)] = name;
  return request;
}

Request<void> factoryReset() { return {SysMgrCommands::SYSMGR_FACTORY_RESET, {}}; }

Request<void> rebootDevice() { return {SysMgrCommands::SYSMGR_REBOOT_DEVICE, {}}; }

Request<void> setModuleState(const std::string& module, bool error, bool warn) {
  Request<void> request{SysMgrCommands::SYSMGR_SET_MODULE_STATE, {}};
  Json::Value& state = request.body[module];
  state["error"] = error;
  state["warn"] = warn;
  return request;
}

Request<void> setGpioConfiguration(const Json::Value& lines) {
  return {SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, lines};
}

Request<Json::Value> internalDebugInfo() { return {SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO, {}, readWhole}; }

Request<Json::Value> gpioConfiguration(const Json::Value& lines) {
  return {SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, lines, readWhole};
}

Request<std::list<WhiteListEntry>> mcastWhitelist() {
  constexpr Command kCommand = SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST;
  const auto read = [](Json::Value& answer, std::list<WhiteListEntry>& entries) {
    appendRecords(answer[Json::StaticString(kWhitelistMember)], entries);
  };
  return {kCommand, {}, read};
}

Request<void> addMcastWhitelist(const WhiteListEntry& entry) {
  return changeWhitelist(SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, entry);
}

Request<void> removeMcastWhitelist(const WhiteListEntry& entry) {
  return changeWhitelist(SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, entry);
}

Request<void> enableMcastWhitelist(const WhiteListEntry& entry) {
  return changeWhitelist(SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, entry);
}

}  // namespace zel::requests
