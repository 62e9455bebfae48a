#pragma once

#include <json/value.h>

#include "cli/daemon.h"
#include "types/sysmgr_types.h"

namespace zel::ctl {

/// What the daemon says about the board and its state.
struct BoardState {
  SysParameters stored;
  SysParametersDynamic dynamic;
  BoardModel model;
  Json::Value network;  ///< the state of the network stack, in the daemon's own layout; empty when it is not served
  Json::Value whitelist;
};
/// @throws Failure
BoardState readBoard(Daemon& daemon);

/// A document that not every daemon serves; empty when the daemon refuses it. @throws Failure for any other reason
Json::Value documentIfServed(Daemon& daemon, const char* name);

/// The state as one document. A value that is not known is null, a member that the daemon does not report is missing.
Json::Value pageOf(const BoardState& board);

}  // namespace zel::ctl
