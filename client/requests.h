#pragma once

#include <json/value.h>

#include <list>
#include <string>
#include <type_traits>

#include "../common/export.h"
#include "../types/settings.h"
#include "../types/sysmgr_types.h"
#include "../types/whitelist.h"
#include "commands.h"
#include "sysmgr_jsonApi.h"

/// @file
/// The daemon's requests as values. `zel::AsyncClient` carries them out; `SysMgrClient` sends the same ones.
///
/// @code
/// client.submit(zel::requests::set(zel::settings::kRtspTcpPort, 5004), [](const zel::Answer<void>& answer) {...});
/// client.submit(zel::requests::storedParameters(), [](const zel::Answer<SysParameters>& answer) {...});
/// @endcode
///
/// Values are not validated here; the daemon does that. Threads: a request is a plain value; the functions may be
/// called in any thread.

namespace zel {

/// A request whose answer holds a `Value`.
template <class Value>
struct Request {
  SysMgrCommands::sysmgr_msg_t command;
  Json::Value body;  ///< null: the command has no body
  /// Reads the answer to a request that succeeded: fills the value as the record's `Deserialize` does, with the same
  /// rules for missing keys, or appends to a list. Throws JsonCpp's exceptions for a value that does not convert. May
  /// add null members to the answer.
  void (*read)(Json::Value& answer, Value& value);
};

/// A request whose answer holds nothing besides its status.
template <>
struct Request<void> {
  SysMgrCommands::sysmgr_msg_t command;
  Json::Value body;  ///< null: the command has no body
};

namespace requests {

/// @name Settings
/// The daemon stores the value and notifies its subscribers.
/// @{

/// Sets the value of a row of types/settings.h, where each row has its type, accepted values and meaning. A text is
/// sent whole, NUL characters included.
template <class T>
Request<void> set(const Setting<T>& row, const T& value) {
  const bool identify = row.route == SettingRow::Route::kIdentify;
  Request<void> request{identify ? SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS : SysMgrCommands::SYSMGR_SET_PARAMETER, {}};
  request.body[Json::StaticString(row.key)] = row.toJson(value);
  return request;
}
/// The same for a value that converts: `set(zel::settings::kRtspTcpPort, 5004)`.
template <class T, class Convertible, class = std::enable_if_t<!std::is_same_v<T, Convertible>>>
Request<void> set(const Setting<T>& row, const Convertible& value) {
  return set(row, static_cast<T>(value));
}

/// Sets one member of a block (`Route::kBlock`) and leaves the others as the daemon has them:
/// `setMember(zel::settings::kNmosNodePort, 8080)` sends {"nmos": {"node-port": 8080}}.
///
/// A row of another route has no such request: the body is null then, and the daemon refuses it.
template <class T>
Request<void> setMember(const StoredValue<T>& row, const std::common_type_t<T>& value) {
  Request<void> request{SysMgrCommands::SYSMGR_SET_PARAMETER, {}};
  if (row.route != SettingRow::Route::kBlock) return request;
  const std::string path = row.path;
  request.body[row.key][path.substr(path.find('/') + 1)] = row.toJson(value);
  return request;
}

/// Adds the configuration of an interface, or replaces the one of the same name. What `EthIpV4Cfg::validate` checks is
/// not checked here.
ZEL_EXPORT Request<void> addInterface(const EthIpV4Cfg& configuration);
/// Removes the configuration of an interface.
ZEL_EXPORT Request<void> removeInterface(const std::string& name);
/// @}

/// @name Device actions
/// @{

/// Resets the configuration to the factory's.
ZEL_EXPORT Request<void> factoryReset();
/// Asks for a restart of the board.
ZEL_EXPORT Request<void> rebootDevice();
/// Reports the state of a module of the board to the daemon.
/// @param module       the module's name
/// @param error, warn  whether it has an error, and whether it has a warning
ZEL_EXPORT Request<void> setModuleState(const std::string& module, bool error, bool warn);
/// Configures GPIO lines. @param lines  the body of the request, as the daemon takes it
ZEL_EXPORT Request<void> setGpioConfiguration(const Json::Value& lines);
/// @}

/// @name Queries
/// Each answer holds the record of the member that the daemon answers with.
/// @{

/// The query of this command, whose row in client/commands.h names the member.
template <SysMgrCommands::sysmgr_msg_t command, class Record>
Request<Record> query() {
  constexpr const char* kMember = findCommand(command)->payload;
  static_assert(kMember != nullptr, "the answer to this command has no member of its own");
  return {command, {}, [](Json::Value& answer, Record& record) {
            record.Deserialize(answer[Json::StaticString(kMember)]);
          }};
}

inline auto storedParameters() { return query<SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, SysParameters>(); }
inline auto dynamicParameters() { return query<SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, SysParametersDynamic>(); }
inline auto systemInfo() { return query<SysMgrCommands::SYSMGR_GET_SYSTEM_INFO, SystemBasicInfo>(); }
inline auto boardModel() { return query<SysMgrCommands::SYSMGR_GET_BOARD_MODEL, BoardModel>(); }
inline auto networkStackStatus() {
  return query<SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS, NetworkStackStatus>();
}

/// The whole answer of the daemon.
ZEL_EXPORT Request<Json::Value> internalDebugInfo();
/// The whole answer of the daemon. @param lines  the body of the request: which lines are asked for
ZEL_EXPORT Request<Json::Value> gpioConfiguration(const Json::Value& lines);
/// @}

/// @name Multicast whitelist
/// @{
/// The entries in the daemon's order.
ZEL_EXPORT Request<std::list<WhiteListEntry>> mcastWhitelist();
/// Adds an entry, or replaces the one of the same address.
ZEL_EXPORT Request<void> addMcastWhitelist(const WhiteListEntry& entry);
/// Removes the entry of this address and mask.
ZEL_EXPORT Request<void> removeMcastWhitelist(const WhiteListEntry& entry);
/// Turns the entry of this address and mask on or off, as the entry says.
ZEL_EXPORT Request<void> enableMcastWhitelist(const WhiteListEntry& entry);
/// @}

}  // namespace requests

}  // namespace zel
