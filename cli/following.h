#pragma once

#include <json/value.h>

#include <optional>

#include "cli/command.h"
#include "cli/deadline.h"
#include "view/board_view.h"

namespace zel::ctl {

// Shared by the commands that follow the daemon for a while: watch, status --watch, record, doctor.

/// When such a command ends: regularly by --timeout, early by --wait, which bounds it as it does any other command.
class EndOfFollowing {
 public:
  explicit EndOfFollowing(const Call& call);

  /// @return whether the time of --timeout is over
  /// @throws Failure when that of --wait is
  bool hasCome() const;
  /// The time left, in ms; -1: without a limit.
  long left() const;
  /// That of --timeout.
  const std::optional<Deadline>& timeOut() const { return timeOut_; }

 private:
  const Call& call_;
  std::optional<Deadline> timeOut_;
};

/// Connects a view. @throws Failure
void openView(BoardView& view);

/// Waits until a view has something to do, at most so long, and lets it do that.
/// @param ms  -1: without a limit
/// @throws Failure, and what the view's callbacks throw
void attend(BoardView& view, long ms);

}  // namespace zel::ctl
