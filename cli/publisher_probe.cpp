#include "cli/publisher_probe.h"

#include <zmq.h>

#include <algorithm>
#include <memory>

#include "client/endpoints.h"
#include "client/zmq_utils.h"

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

/// Ends the monitor before its socket is closed: libzmq's I/O thread would block for ever if the monitor's socket were
/// closed while it sends an event.
struct StopMonitor {
  void* subscriber;
  ~StopMonitor() { zmq_socket_monitor(subscriber, nullptr, 0); }
};

}  // namespace

bool publisherAccepts(const Deadline& deadline) {
  const Socket subscriber = openSocket(ZMQ_SUB);  // it subscribes to nothing
  const Socket monitor = openSocket(ZMQ_PAIR);
  if (!subscriber || !monitor) return false;
  const StopMonitor atEnd{subscriber.get()};
  const bool works = zmq_socket_monitor(subscriber.get(), kMonitor, ZMQ_EVENT_HANDSHAKE_SUCCEEDED) == 0 &&
                     zmq_connect(monitor.get(), kMonitor) == 0 &&
                     zmq_connect(subscriber.get(), notificationEndpoint().c_str()) == 0;
  zmq_pollitem_t item = {monitor.get(), 0, ZMQ_POLLIN, 0};
  const int limit = std::min(kLongest, static_cast<int>(deadline.left().count() / 2));
  return works && zmq_poll(&item, 1, limit) > 0;
}

}  // namespace zel::ctl
