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
};

/// In ascending order of the ids.
inline constexpr CommandRow kCommands[] = {
    {SysMgrCommands::SYSMGR_GET_STORED_PARAMETERS, "GET Stored parameters", "stored"},
    {SysMgrCommands::SYSMGR_GET_DYNAMIC_PARAMETERS, "GET Dynamic Parameters", "dynamic"},
    {SysMgrCommands::SYSMGR_SET_PARAMETER, "SET stored parameters", nullptr},
    {SysMgrCommands::SYSMGR_GET_BOARD_MODEL, "GET Board Model", "board-model"},
    {SysMgrCommands::SYSMGR_GET_NETWORK_STACK_STATUS, "GET network stack status", "network-stack-status"},
    {SysMgrCommands::SYSMGR_GET_SYSTEM_INFO, "GET system info", "systemInfo"},
    {SysMgrCommands::SYSMGR_FACTORY_RESET, "Resets the configuration files to factory default", nullptr},
    {SysMgrCommands::SYSMGR_SET_MODULE_STATE, "SET module state", nullptr},
    {SysMgrCommands::SYSMGR_REBOOT_DEVICE, "SET request a device reboot", nullptr},
    {SysMgrCommands::SYSMGR_GET_INTERNAL_DEBUG_INFO, "GET debug info", nullptr},
    {SysMgrCommands::SYSMGR_ADD_MCAST_WHITELIST, "ADD Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_REMOVE_MCAST_WHITELIST, "REM Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_ENABLE_MCAST_WHITELIST, "Enable Multicast Whitelist configuration", nullptr},
    {SysMgrCommands::SYSMGR_GET_MCAST_WHITELIST, "GET Multicast Whitelist configuration", kWhitelistMember},
    {SysMgrCommands::SYSMGR_SET_GPIO_CONFIGURATION, "SET gpio configuration", nullptr},
    {SysMgrCommands::SYSMGR_GET_GPIO_CONFIGURATION, "GET gpio configuration", nullptr},
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
