#include "cli/publisher_probe.h"

#include <zmq.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "client/zmq_utils.h"
#include "subscriber/sysmgr_subscriber.h"

namespace zel::ctl {

namespace {

constexpr const char* kMonitor = "inproc://sysmgrctl-publisher";
constexpr int kLongest = 500;  ///< ms; a publisher on this machine is there within some

struct CloseSocket {
  void operator()(void* socket) const { zmq_close(socket); }
};
using Socket = std::unique_ptr<void, CloseSocket>;

Socket openSocket(int type) {
  Socket socket(zmq_socket(ZmqUtils::getInstance().getContext().handle(), type));
  const int linger = 0;
  if (socket) zmq_setsockopt(socket.get(), ZMQ_LINGER, &linger, sizeof linger);
  return socket;
}

/// The event of the next message of a socket monitor.
uint16_t nextEvent(void* monitor) {
  uint16_t event = 0;
  char frame[512];
  const int size = zmq_recv(monitor, frame, sizeof frame, 0);  // the event, with a value
  if (size >= static_cast<int>(sizeof event)) std::memcpy(&event, frame, sizeof event);
  zmq_recv(monitor, frame, sizeof frame, 0);  // the endpoint
  return event;
}

}  // namespace

bool publisherAccepts(const Deadline& deadline) {
  const Socket subscriber = openSocket(ZMQ_SUB);
  const Socket monitor = openSocket(ZMQ_PAIR);
  const bool open =
      subscriber && monitor && zmq_socket_monitor(subscriber.get(), kMonitor, ZMQ_EVENT_HANDSHAKE_SUCCEEDED) == 0 &&
      zmq_connect(monitor.get(), kMonitor) == 0 && zmq_connect(subscriber.get(), SysmgrPublisher::kEndpoint) == 0;
  if (!open) return false;
  zmq_pollitem_t item = {monitor.get(), 0, ZMQ_POLLIN, 0};
  const int limit = std::min(kLongest, static_cast<int>(deadline.left().count() / 2));
  const bool accepted = zmq_poll(&item, 1, limit) > 0 && nextEvent(monitor.get()) == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
  zmq_socket_monitor(subscriber.get(), nullptr, 0);
  return accepted;
}

}  // namespace zel::ctl
