#pragma once

#include <optional>

#include "common/socket_parts.h"

namespace zel {

/// Somebody who keeps the connection behind a socket alive, and has to be given the chance to while an application
/// waits for that socket: a connection that is gone for good never makes its socket ready.
class LinkKeeper {
 public:
  /// The keeper of the link behind a socket; null when it has none.
  static LinkKeeper* of(const void* socket);

  virtual ~LinkKeeper();
  LinkKeeper(const LinkKeeper&) = delete;
  LinkKeeper& operator=(const LinkKeeper&) = delete;

  /// A wait begins or ends; `tend` and `watched` are called in between only.
  /// @return false: the process is ending and there is nothing to wait for any more. `endWait` is due all the same.
  virtual bool beginWait() = 0;
  virtual void endWait() noexcept = 0;

  /// Does what there is to do for the link.
  /// @param told  whether the watched descriptor was found readable. It costs a system call to look without.
  /// @return when to call again at the latest; empty: not before the watched descriptor is readable.
  virtual std::optional<Clock::time_point> tend(bool told) = 0;
  /// The descriptor that is readable when there is something to do. A ZeroMQ socket's ZMQ_FD: to poll that is cheaper
  /// than to poll the socket, and right because `tend` leaves nothing in the socket.
  virtual int watched() const = 0;

 protected:
  LinkKeeper() = default;

  /// Makes this the keeper of the link behind the socket, and of no other; null: of none.
  void keepLinkOf(const void* socket);
};

}  // namespace zel
