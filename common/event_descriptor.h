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
/// the set has to be renewed. ZeroMQ's own descriptor, ZMQ_FD, is edge-triggered (zmq_getsockopt(3)) and silent about a
/// connection that libzmq has given up. A loop that watches this descriptor instead has to handle neither, and needs no
/// timer.
///
/// Nothing is logged. Threads: one at a time, that of the subscribers in the set. A forked child makes an object of its
/// own; the inherited descriptor is the parent's. An object that another thread uses while the process ends must not be
/// in static storage, as the set.
class ZEL_EXPORT EventDescriptor {
 public:
  /// @param fds  has to outlive this object. Items that are added later are watched from the next `poll` on.
  explicit EventDescriptor(PollFds& fds);
  ~EventDescriptor();
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;

  /// The descriptor to watch. Only to be watched, never read, and not after the object is destroyed. It is readable at
  /// the beginning, and stays so until a call of `poll` returns 0. May be readable when nothing is ready. The same for
  /// the life of the object; -1 when there were too few descriptors to make it.
  int descriptor() const;

  /// As `PollFds::poll` with a time-out of 0: sets the `revents` of the items, and renews the connections of the
  /// subscribers where that is due. Never waits for an item; to renew a connection takes 11 ms at most. To be called
  /// whenever the descriptor is readable.
  /// @return the number of ready items; -1 as `PollFds::poll`: the loop stops watching then. The descriptor stays
  ///         readable unless this is 0.
  int poll();

 private:
  struct ZEL_HIDDEN State;
  State* const state_;
};

}  // namespace zel
