#pragma once

#include <json/value.h>

#include <chrono>
#include <string>

#include "../common/client_json_api.h"
#include "../common/export.h"

/// The daemon's commands.
class ZEL_EXPORT SysMgrCommands {
 public:
  /// The command ids of the wire. The daemon's protocol fixes them.
  enum sysmgr_msg_t : int {
    SYSMGR_GET_STORED_PARAMETERS = 0,
    SYSMGR_GET_DYNAMIC_PARAMETERS = 1,
    SYSMGR_SET_PARAMETER = 2,
    SYSMGR_GET_BOARD_MODEL = 3,
    SYSMGR_GET_NETWORK_STACK_STATUS = 4,
    SYSMGR_GET_SYSTEM_INFO = 5,
    SYSMGR_FACTORY_RESET = 6,
    SYSMGR_SET_MODULE_STATE = 7,
    SYSMGR_REBOOT_DEVICE = 8,
    SYSMGR_GET_INTERNAL_DEBUG_INFO = 12,
    SYSMGR_ADD_MCAST_WHITELIST = 13,
    SYSMGR_REMOVE_MCAST_WHITELIST = 14,
    SYSMGR_ENABLE_MCAST_WHITELIST = 15,
    SYSMGR_GET_MCAST_WHITELIST = 16,
    SYSMGR_SET_GPIO_CONFIGURATION = 17,
    SYSMGR_GET_GPIO_CONFIGURATION = 18,
    SYSMGR_SET_IDENTIFY_LEDS = 19,
  };

  /// Names a command for people: "GET Stored parameters".
  ///
  /// @param name  receives the name in place of what it held. For an id above 19 "not recognized" is appended instead;
  ///              an id up to 19 that is no command (a negative one included) leaves it as it is.
  /// @return 0
  /// Threads: any.
  static int getCommandNameStr(sysmgr_msg_t id, std::string& name);
};

/// The request client of the system manager daemon at the JSON level: one operation a command.
///
/// Each operation sends its command, with the request body where it has one, and fills the reply with the daemon's
/// whole answer. Each returns 0 on success (a positive status of the daemon's counts as success) and on failure the
/// negative code of `ClientJsonApi::sendMessage`, after one line at level 2, "CHK(%s)::%d Error Code %d" with the
/// operation's signature, the line of the check and the code. After a failure the reply must not be read;
/// `getLastErrorMessage` has the text.
///
/// `init` must have been called, with the context of `ZmqUtils` as a rule. Threads: one caller at a time per client.
class ZEL_EXPORT SysMgrJsonClient : public ClientJsonApi {
 public:
  SysMgrJsonClient();
  ~SysMgrJsonClient() override;

  /// The daemon's request endpoint: "tcp://127.0.0.1:5556", unless the program says otherwise (client/endpoints.h).
  std::string getIpcConnectAddress() override;
  /// As `SysMgrCommands::getCommandNameStr`.
  int getCommandDescription(unsigned int id, std::string& description) override;

  /// The time-out of `setTimeout`. A derived class may say otherwise.
  int getClientTimeout() override;
  /// How long each of the next requests may take from its start to its answer: 5 s unless this is called. 0 and
  /// negative values mean 5 s again.
  void setTimeout(std::chrono::milliseconds timeout);

  int getStoredParameters(Json::Value& reply);
  int getDynamicParameters(Json::Value& reply);
  /// @param request  a flat object of the keys to change
  int setSysMgrParameter(Json::Value& request, Json::Value& reply);
  int getBoardModel(Json::Value& reply);
  int getNetworkStackStatus(Json::Value& reply);
  int getSystemInfo(Json::Value& reply);
  int factoryReset(Json::Value& reply);
  /// @param requestAndReply  {module: {"error": bool, "warn": bool}}; overwritten by the reply
  int setModuleState(Json::Value& requestAndReply);
  int rebootDevice(Json::Value& reply);
  int getInternalDebugInfo(Json::Value& reply);
  /// @param request  {"white-list": [entry]}; so for the next two
  int addMcastWhitelist(Json::Value& request, Json::Value& reply);
  int removeMcastWhitelist(Json::Value& request, Json::Value& reply);
  int enableMcastWhitelist(Json::Value& request, Json::Value& reply);
  int getMcastWhitelist(Json::Value& reply);
  int setGpioConfiguration(Json::Value& request, Json::Value& reply);
  /// A query that carries a request body: which lines are asked for.
  int getGpioConfiguration(Json::Value& request, Json::Value& reply);
  /// @param request  {"identify-enable": bool}
  int setIdentifyLeds(Json::Value& request, Json::Value& reply);

 private:
  int timeout_ = 0;  ///< ms; 0: the default

  int exchange(SysMgrCommands::sysmgr_msg_t id, Json::Value& reply);
  int exchange(SysMgrCommands::sysmgr_msg_t id, const Json::Value& request, Json::Value& reply);
};
