#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "common/shared/socket_parts.h"

namespace zel {

/// One descriptor for an application's own event loop: an epoll(7) descriptor over others and a timer. It is readable
/// while one of the others is readable, or the timer's time has come.
///
/// After fork(2) the descriptor is shared with the parent: in the child every operation does nothing, so that the
/// parent's loop is not disturbed.
class WakeUp {
 public:
  WakeUp();
  ~WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;

  /// Negative when there were too few descriptors to make it.
  int descriptor() const { return epoll_; }

  /// Watches a descriptor from now on, level-triggered. @param events  as epoll_ctl(2) has them
  void watch(int descriptor, unsigned int events);
  /// Has to be called before the descriptor is closed.
  void forget(int descriptor) noexcept;

  /// Makes the descriptor readable at that time at the latest; a time that is over: at once. A later time than the one
  /// before does not take effect until that one has come, which saves system calls: then nothing may be due.
  void at(Clock::time_point time);
  /// Makes the descriptor readable at once.
  void now() { at(Clock::time_point::min()); }
  /// Ends the effect of the timer if its time has come.
  void settle();

 private:
  bool isOurs() const;

  int epoll_;
  int timer_;
  pid_t process_;
  std::optional<Clock::time_point> armed_;
};

}  // namespace zel
