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
  Json::Value network;  ///< the state of the network stack, in the daemon's own layout
  Json::Value whitelist;
};
/// @throws Failure
BoardState readBoard(Daemon& daemon);

/// The state as one document. A value that is not known is null, a member that the daemon does not report is missing.
Json::Value pageOf(const BoardState& board);

}  // namespace zel::ctl
