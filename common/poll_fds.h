#pragma once

#include <cstddef>
#include <vector>
#include <zmq.hpp>

#include "export.h"

/// An application's poll set: ZeroMQ sockets and file descriptors that one thread waits for.
///
/// Subscribers add themselves (`getPollItems`); the application may add items of its own:
///
///     PollFds fds;
///     subscriber.getPollItems(fds);
///     while (running) {
///       fds.poll(1000);
///       for (const zmq_pollitem_t& item : fds)
///         if (item.revents != 0 && item.socket == ...) ...
///     }
///
/// An item must not stay in the set when its socket is closed. A subscriber closes its socket when it is destroyed.
/// Threads: one at a time, that of the subscribers whose items the set holds. A set that another thread polls while the
/// process ends must not be in static storage, where it would be destroyed during the poll.
class ZEL_EXPORT PollFds {
 public:
  /// Appends an item; the same socket may be there already.
  void add(const zmq_pollitem_t& item);

  std::size_t size() const;
  bool empty() const;

  /// The items in the order in which they were added, as zmq_poll(3) wants them. Adding an item invalidates what
  /// these return.
  zmq_pollitem_t* data();
  zmq_pollitem_t& operator[](std::size_t index);
  const zmq_pollitem_t& operator[](std::size_t index) const;
  zmq_pollitem_t* begin();
  zmq_pollitem_t* end();
  const zmq_pollitem_t* begin() const;
  const zmq_pollitem_t* end() const;

  /// Waits until an item is ready and sets the `revents` of all of them.
  ///
  /// Meanwhile it keeps the connections of the subscribers in the set alive, so an application that waits here needs
  /// to do nothing about a daemon that restarts; to renew a lost connection it may take 11 ms more than the time-out.
  /// One that waits elsewhere finds at `SubscribeJsonClient` what it has to do.
  ///
  /// A signal does not end the wait: to be woken by one, add the descriptor of a signalfd(2) or of a pipe.
  ///
  /// @param timeoutMs  the longest wait, in milliseconds; 0 only looks; negative, or longer than the clock can count,
  ///                   waits for ever.
  /// @return the number of ready items; 0 at the time-out; -1 when the items cannot be waited for: a socket that is
  ///         not open any more, or a process that ends (zmq_errno(3) has the reason).
  int poll(long timeoutMs);

 private:
  std::vector<zmq_pollitem_t> items_;
  std::vector<const void*> subscribers_;  ///< those of the sockets that subscribers own
};
