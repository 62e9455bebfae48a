#pragma once

#include <zmq.h>

#include <memory>
#include <optional>

#include "cli/deadline.h"

namespace zel::ctl {

/// Observes whether a publisher is there, over a connection of its own to the endpoint of the notifications.
class PublisherMonitor {
 public:
  PublisherMonitor();
  ~PublisherMonitor();
  PublisherMonitor(const PublisherMonitor&) = delete;
  PublisherMonitor& operator=(const PublisherMonitor&) = delete;

  /// For a poll set; without a socket where the monitor could not be made.
  zmq_pollitem_t item() const { return {monitor_.get(), 0, ZMQ_POLLIN, 0}; }
  /// The next change, if there is one: true when a publisher has completed the handshake, false when its connection is
  /// lost. Does not wait.
  std::optional<bool> nextChange();

 private:
  struct CloseSocket {
    void operator()(void* socket) const { zmq_close(socket); }
  };
  using Socket = std::unique_ptr<void, CloseSocket>;
  static Socket openSocket(int type);

  Socket subscriber_;  ///< it subscribes to nothing
  Socket monitor_;
};

/// Whether a publisher completes the handshake with a subscriber within half a second, or within half of the time that
/// is left when that is less.
bool publisherAccepts(const Deadline& deadline);

}  // namespace zel::ctl
