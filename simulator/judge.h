#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

#include "simulator/refusal.h"
#include "types/settings.h"

namespace zel::sim {

/// A JSON value as an error text shows it: compact and not too long.
std::string shown(const Json::Value& value);
/// Bytes of unknown origin as an error text shows them: each byte that is not printable ASCII becomes "?".
std::string shownBytes(std::string_view bytes);

Refusal wrongType(const std::string& name, const Json::Value& value, const char* wanted);
Refusal unknownKey(const std::string& name, const Json::Value& value);
/// Refuses the member of an object; one whose name is a path gets a text that says how to write it instead.
/// @param object  the name of the object; empty for a whole body or document
Refusal unknownMember(const std::string& object, const std::string& name, const Json::Value& value);

// Each function takes the name that an error text gives to the value, and returns why the value is refused.

/// Judges the value of a switch, a number, a text or a choice.
Refusal judge(const std::string& name, const Json::Value& value, const SettingRow& row);
/// Judges whether a value has only keys and types that a reference has. The elements of an array are compared with the
/// first element of the reference's.
Refusal judgeShape(const std::string& name, const Json::Value& value, const Json::Value& reference);
Refusal judgeAddress(const std::string& name, const Json::Value& value);

}  // namespace zel::sim
