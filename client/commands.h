#pragma once

#include "../types/whitelist.h"
#include "sysmgr_jsonApi.h"

/// @file
/// The table of the daemon's commands. common/envelope.h has the members that every answer has besides.

namespace zel {

/// One command of the daemon.
struct CommandRow {
  SysMgrCommands::sysmgr_msg_t id;
  const char* name;     ///< the daemon's own text, capitals included
  const char* payload;  ///< the member of the answer that holds what was asked for; null when there is no such member

  // Queries only: the document that the command asks for.
  const char* document = nullptr;     ///< its name in the commands of the tools and of the simulator: "stored"
  const char* title = nullptr;        ///< "the stored parameters"
  const char* meaning = nullptr;      ///< "the configuration that the daemon keeps"
  const char* usualMember = nullptr;  ///< where `payload` is null: the member of the answer that may hold the document

  constexpr bool isQuery() const { return document != nullptr; }
};

/// In ascending order of the ids.
inline constexpr CommandRow kCommands[] = {
    {SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, "GET Stored parameters", "stored", "stored", "the stored parameters",
     "the configuration that the daemon keeps"},
    {SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, "GET Dynamic Parameters", "dynamic", "dynamic",
     "the dynamic information", "the state of interfaces, temperatures, fans, errors"},
    {SysMgrCommands::SYSMGR_SET_PARAMETER, "SET stored parameters", nullptr},
    {SysMgrCommands::SYSMGR_GET_BOARD_MODEL, "GET Board Model", "board-model", "model", "the board model",
     "which board this is and the bitstream that it runs"},
    {SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS, "GET network stack status", "network-stack-status", "network",
     "the network stack status", "the state of the network stack"},
    {SysMgrCommands::SYSMGR_GET_SYSTEM_INFO, "GET system info", "systemInfo", "info", "the system information",
     "versions and serial numbers of the system"},
    {SysMgrCommands::SYSMGR_FACTORY_RESET, "Resets the configuration files to factory default", nullptr},
    {SysMgrCommands::SYSMGR_SET_MODULE_STATE, "SET module state", nullptr},
    {SysMgrCommands::SYSMGR_REBOOT_DEVICE, "SET request a device reboot", nullptr},
    {SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO, "GET debug info", nullptr, "debug", "the debug information",
     "the daemon's own counters, for its makers", "debug-info"},
    {SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, "ADD Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, "REM Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, "Enable Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, "GET Multicast Whitelist configuration", kWhitelistMember, "whitelist",
     "the multicast whitelist", "from where multicast streams are accepted"},
    {SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, "SET gpio configuration", nullptr},
    {SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, "GET gpio configuration", nullptr, "gpio", "the GPIO lines",
     "the general purpose lines", "gpio"},
    {SysMgrCommands::SYSMGR_SET_IDENTIFY_LEDS, "SET Identify LEDs", nullptr},
};

/// The row of a command; null when the table has none.
constexpr const CommandRow* findCommand(SysMgrCommands::sysmgr_msg_t id) {
  for (const CommandRow& row : kCommands) {
    if (row.id == id) return &row;
  }
  return nullptr;
}

}  // namespace zel
