#pragma once

#include <json/value.h>

#include "simulator/refusal.h"
#include "types/whitelist.h"

namespace zel::sim {

// Each function carries out the entries of an array one after the other. When it refuses one, the ones before it have
// been carried out: the caller drops the changed list.

Refusal addToWhitelist(const Json::Value& entries, WhiteListDb& db);
Refusal removeFromWhitelist(const Json::Value& entries, WhiteListDb& db);
/// Sets whether the entries are in force.
Refusal enableOnWhitelist(const Json::Value& entries, WhiteListDb& db);

}  // namespace zel::sim
