#include "client/sysmgr_jsonApi.h"

#include <iterator>

#include "client/commands.h"
#include "client/endpoints.h"
#include "common/ipc_msg.h"
#include "common/shared/failed_check.h"

using zel::checked;

int SysMgrCommands::getCommandNameStr(sysmgr_msg_t id, std::string& name) {
  constexpr sysmgr_msg_t kHighest = std::end(zel::kCommands)[-1].id;
  if (id > kHighest) {
    name += "not recognized";
    return 0;
  }
  if (const zel::CommandRow* const row = zel::findCommand(id)) name = row->name;
  return 0;
}

SysMgrJsonClient::SysMgrJsonClient() = default;
SysMgrJsonClient::~SysMgrJsonClient() = default;

std::string SysMgrJsonClient::getIpcConnectAddress() { return zel::requestEndpoint(); }

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
