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

/// The opposite of `parseSetting`: a value of a row as it is typed.
std::string typedText(const SettingRow& row, const Json::Value& value);

/// A key with its new value as a request carries it.
struct Assignment {
  const SettingRow* row;
  Json::Value value;
};
using Assignments = std::vector<Assignment>;

/// Reads KEY VALUE and KEY=VALUE words; a key is the `path` of a row. Everything is read before anything is sent, so
/// that a slip in the last value leaves the first ones unset.
/// @throws Failure, with a suggestion for a key that does not exist
Assignments parseAssignments(const Words& words);

/// Adds an assignment to the body of a request. A block carries only the members that change: the daemon keeps the
/// others, also those that another process sets at the same time.
void addTo(Json::Value& request, const Assignment& assignment);

/// Sends keys together or not at all. @throws Failure
void send(Daemon& daemon, const Assignments& assignments);

}  // namespace zel::ctl
