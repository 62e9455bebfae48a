#include "cli/publisher_probe.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "client/endpoints.h"
#include "client/zmq_utils.h"

namespace zel::ctl {

namespace {

constexpr const char* kMonitor = "inproc://sysmgrctl-publisher";
constexpr int kLongest = 500;  ///< ms; a publisher on this machine is there within some
constexpr int kEvents = ZMQ_EVENT_HANDSHAKE_SUCCEEDED | ZMQ_EVENT_DISCONNECTED;

}  // namespace

PublisherMonitor::Socket PublisherMonitor::openSocket(int type) {
  Socket socket(zmq_socket(ZmqUtils::getInstance().getContext().handle(), type));
  const int linger = 0;
  if (socket) zmq_setsockopt(socket.get(), ZMQ_LINGER, &linger, sizeof linger);
  return socket;
}

PublisherMonitor::PublisherMonitor() : subscriber_(openSocket(ZMQ_SUB)), monitor_(openSocket(ZMQ_PAIR)) {
  const bool works = subscriber_ && monitor_ && zmq_socket_monitor(subscriber_.get(), kMonitor, kEvents) == 0 &&
                     zmq_connect(monitor_.get(), kMonitor) == 0 &&
                     zmq_connect(subscriber_.get(), notificationEndpoint().c_str()) == 0;
  if (!works) monitor_.reset();
}

PublisherMonitor::~PublisherMonitor() {
  // First: libzmq's I/O thread would block for ever if the monitor closed while it sends an event.
  if (subscriber_) zmq_socket_monitor(subscriber_.get(), nullptr, 0);
}

std::optional<bool> PublisherMonitor::nextChange() {
  uint16_t event = 0;
  char frame[512];
  // An event is two frames: its number with a value, and the endpoint.
  const int size = monitor_ ? zmq_recv(monitor_.get(), frame, sizeof frame, ZMQ_DONTWAIT) : -1;
  if (size < static_cast<int>(sizeof event)) return std::nullopt;
  std::memcpy(&event, frame, sizeof event);
  zmq_recv(monitor_.get(), frame, sizeof frame, 0);
  return event == ZMQ_EVENT_HANDSHAKE_SUCCEEDED;
}

bool publisherAccepts(const Deadline& deadline) {
  PublisherMonitor monitor;
  zmq_pollitem_t item = monitor.item();
  if (item.socket == nullptr) return false;
  const int limit = std::min(kLongest, static_cast<int>(deadline.left().count() / 2));
  return zmq_poll(&item, 1, limit) > 0 && monitor.nextChange().value_or(false);
}

}  // namespace zel::ctl
