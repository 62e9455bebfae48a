#include "client/sysmgr_jsonApi.h"

#include <utility>
#include <vector>

#include "common/failed_check.h"
#include "common/ipc_msg.h"

using zel::checked;

int SysMgrCommands::getCommandNameStr(sysmgr_msg_t id, std::string& name) {
  using Row = std::pair<int, std::string>;
  // The texts are the daemon's own, capitals included. Never destroyed: a request that fails while the process ends
  // still names its command.
  static const std::vector<Row>& command_table = *new const std::vector<Row>{
      {SYSMGR_GET_STORED_PARAMETERS, "GET Stored parameters"},
      {SYSMGR_GET_DYNAMIC_PARAMETERS, "GET Dynamic Parameters"},
      {SYSMGR_SET_PARAMETER, "SET stored parameters"},
      {SYSMGR_GET_BOARD_MODEL, "GET Board Model"},
      {SYSMGR_GET_NETWORK_STACK_STATUS, "GET network stack status"},
      {SYSMGR_GET_SYSTEM_INFO, "GET system info"},
      {SYSMGR_FACTORY_RESET, "Resets the configuration files to factory default"},
      {SYSMGR_SET_MODULE_STATE, "SET module state"},
      {SYSMGR_REBOOT_DEVICE, "SET request a device reboot"},
      {SYSMGR_GET_INTERNAL_DEBUG_INFO, "GET debug info"},
      {SYSMGR_ADD_MCAST_WHITELIST, "ADD Multicast Whitelist configuration"},
      {SYSMGR_REMOVE_MCAST_WHITELIST, "REM Multicast Whitelist configuration"},
      {SYSMGR_ENABLE_MCAST_WHITELIST, "Enable Multicast Whitelist configuration"},
      {SYSMGR_GET_MCAST_WHITELIST, "GET Multicast Whitelist configuration"},
      {SYSMGR_SET_GPIO_CONFIGURATION, "SET gpio configuration"},
      {SYSMGR_GET_GPIO_CONFIGURATION, "GET gpio configuration"},
      {SYSMGR_SET_IDENTIFY_LEDS, "SET Identify LEDs"},
  };

  if (id > SYSMGR_SET_IDENTIFY_LEDS) {
    name += "not recognized";
    return 0;
  }
  for (const auto& [known, text] : command_table) {
    if (known == id) {
      name = text;
      break;
    }
  }
  return 0;
}

SysMgrJsonClient::SysMgrJsonClient() = default;
SysMgrJsonClient::~SysMgrJsonClient() = default;

std::string SysMgrJsonClient::getIpcConnectAddress() { return "tcp://127.0.0.1:5556"; }

int SysMgrJsonClient::getCommandDescription(unsigned int id, std::string& description) {
  return SysMgrCommands::getCommandNameStr(static_cast<SysMgrCommands::sysmgr_msg_t>(id), description);
}

int SysMgrJsonClient::exchange(SysMgrCommands::sysmgr_msg_t id, Json::Value& reply) {
  IpcMsg message(static_cast<unsigned int>(id));
  return sendMessage(message, reply);
}

int SysMgrJsonClient::exchange(SysMgrCommands::sysmgr_msg_t id, const Json::Value& request, Json::Value& reply) {
  IpcMsg message(static_cast<unsigned int>(id), request);
  return sendMessage(message, reply);
}

int SysMgrJsonClient::getStoredParameters(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, reply));
}

int SysMgrJsonClient::getDynamicParameters(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, reply));
}

int SysMgrJsonClient::setSysMgrParameter(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_SET_PARAMETER, request, reply));
}

int SysMgrJsonClient::getBoardModel(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_BOARD_MODEL, reply));
}

int SysMgrJsonClient::getNetworkStackStatus(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS, reply));
}

int SysMgrJsonClient::getSystemInfo(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_SYSTEM_INFO, reply));
}

int SysMgrJsonClient::factoryReset(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_FACTORY_RESET, reply));
}

int SysMgrJsonClient::setModuleState(Json::Value& requestAndReply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_SET_MODULE_STATE, requestAndReply, requestAndReply));
}

int SysMgrJsonClient::rebootDevice(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_REBOOT_DEVICE, reply));
}

int SysMgrJsonClient::getInternalDebugInfo(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO, reply));
}

int SysMgrJsonClient::addMcastWhitelist(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, request, reply));
}

int SysMgrJsonClient::removeMcastWhitelist(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, request, reply));
}

int SysMgrJsonClient::enableMcastWhitelist(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, request, reply));
}

int SysMgrJsonClient::getMcastWhitelist(Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, reply));
}

int SysMgrJsonClient::setGpioConfiguration(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, request, reply));
}

int SysMgrJsonClient::getGpioConfiguration(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, request, reply));
}

int SysMgrJsonClient::setIdentifyLeds(Json::Value& request, Json::Value& reply) {
  return checked(ZEL_HERE, exchange(SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS, request, reply));
}
