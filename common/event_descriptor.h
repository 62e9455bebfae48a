#pragma once

#include "export.h"
#include "poll_fds.h"

namespace zel {

/// One descriptor for a poll set, so that any event loop can wait for it: poll(2), epoll(7), sd-event(3), Asio, GLib,
/// Qt.
///
/// @code
/// PollFds fds;
/// cfg.initSubscribers(fds);
/// zel::EventDescriptor events(fds);
/// loop.whenReadable(events.descriptor(), [&] {
///   events.poll();
///   while (cfg.processEvent(fds[0]) != 0) continue;
/// });
/// @endcode
///
/// The descriptor is readable, level-triggered, while an item of the set is ready, or the connection of a subscriber in
/// the set needs care. ZeroMQ's own descriptor, ZMQ_FD, is edge-triggered (zmq_getsockopt(3)) and silent about a
/// connection that is gone for good; with this class a loop need not know either, and needs no timer.
///
/// Threads: one at a time, that of the subscribers in the set. A forked child makes its own. One that another thread
/// uses while the process ends must not be in static storage, as the set.
class ZEL_EXPORT EventDescriptor {
 public:
  /// @param fds  has to outlive this object. Items that are added later are watched from the next `poll` on.
  explicit EventDescriptor(PollFds& fds);
  ~EventDescriptor();
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;

  /// The descriptor to watch. Only to be watched, never read. It is readable at the beginning, and stays so until a
  /// call of `poll` returns 0. The same for the life of the object; -1 when there were too few descriptors to make it.
  int descriptor() const;

  /// As `PollFds::poll` with a time-out of 0: sets the `revents` of the items, cares for the connections of the
  /// subscribers, and never waits (to renew a lost connection takes 11 ms at most). To be called whenever the
  /// descriptor is readable.
  /// @return the number of ready items: not 0 keeps the descriptor readable; -1 as `PollFds::poll`
  int poll();

 private:
  struct State;
  State* const state_;
};

}  // namespace zel
