#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "cli/daemon.h"
#include "cli/words.h"
#include "types/settings.h"

namespace zel::ctl {

/// The rows of the table of settings that `set` takes: each that a request can set and that is not a whole block.
std::vector<const SettingRow*> settableRows();

/// What the values of a row look like: "1..65535", "on|off", "text".
std::string typeOf(const SettingRow& row);
/// The values of a row to offer; empty: any.
Words offeredValues(const SettingRow& row);

/// The value of a row as a request carries it. The daemon checks its range.
/// @throws Failure for a text that does not fit the row's type
Json::Value parseSetting(const SettingRow& row, const std::string& text);

/// Sets keys together or not at all. @throws Failure, with a suggestion for a key that does not exist
/// @param keysAndValues  KEY VALUE KEY VALUE ...; a key is the `path` of a row
/// @return the values as the daemon got them, by key
Json::Value setKeys(Daemon& daemon, const Words& keysAndValues);

}  // namespace zel::ctl
