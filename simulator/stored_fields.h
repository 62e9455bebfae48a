#pragma once

#include <json/value.h>

#include "simulator/refusal.h"
#include "types/sysmgr_types.h"

namespace zel::sim {

/// Applies the flat keys of a change of the stored parameters ("rtsp-tcp-port", "add-eth-cfg", ...): all of them, or
/// none when one is refused.
Refusal applyChange(const Json::Value& change, SysParameters& stored);

/// Applies a stored-parameters document, or a piece of one: keys that are missing leave their value, an "ethipv4" is
/// the whole list. All of it, or none.
Refusal applyDocument(const Json::Value& document, SysParameters& stored);

}  // namespace zel::sim
