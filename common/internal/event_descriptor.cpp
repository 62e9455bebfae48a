#include "common/event_descriptor.h"

#include <sys/epoll.h>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

#include "common/shared/socket_owner.h"
#include "common/shared/wake_up.h"

namespace zel {

namespace {

/// Which events of epoll(7) each descriptor is watched for.
using Watched = std::map<int, unsigned int>;

unsigned int epollEvents(const zmq_pollitem_t& item) {
  return ((item.events & ZMQ_POLLIN) != 0 ? EPOLLIN : 0U) | ((item.events & ZMQ_POLLOUT) != 0 ? EPOLLOUT : 0U) |
         ((item.events & ZMQ_POLLPRI) != 0 ? EPOLLPRI : 0U);
}

}  // namespace

struct EventDescriptor::State {
  PollFds& fds;
  WakeUp wakeUp;
  Watched watched;

  /// Watches what the items need, and sets the timer to when a connection needs care.
  void watchItems() {
    Watched needed;
    for (const zmq_pollitem_t& item : fds) {
      if (item.socket == nullptr) {
        needed[item.fd] |= epollEvents(item);
        continue;
      }
      const SocketOwner::Use use(item.socket);  // from here on no other thread closes the socket
      if (!use) continue;
      needed[descriptorOf(item.socket)] |= EPOLLIN;
      if (use.owner() == nullptr) continue;
      needed[use.owner()->linkDescriptor()] |= EPOLLIN;
      if (const auto due = use.owner()->tendLink(false)) wakeUp.at(*due);
    }
    if (needed != watched) {
      for (const auto& [descriptor, events] : watched) wakeUp.forget(descriptor);
    }
    // Those that are watched already, too: the kernel forgets a descriptor that was closed and opened again.
    for (const auto& [descriptor, events] : needed) wakeUp.watch(descriptor, events);
    watched = std::move(needed);
  }

  /// Whether a socket has become ready since it was polled. The care for its connection may have taken the sign of that
  /// out of ZMQ_FD.
  bool hasBecomeReady() const {
    return std::any_of(fds.begin(), fds.end(), [](const zmq_pollitem_t& item) {
      const SocketOwner::Use use(item.socket);
      const int events = item.socket == nullptr || !use ? 0 : eventsOf(item.socket);
      return events > 0 && (events & item.events) != 0;
    });
  }
};

EventDescriptor::EventDescriptor(PollFds& fds) : state_(new State{fds, {}, {}}) { state_->wakeUp.now(); }

EventDescriptor::~EventDescriptor() { delete state_; }

int EventDescriptor::descriptor() const { return state_->wakeUp.descriptor(); }

int EventDescriptor::poll() {
  state_->wakeUp.settle();
  const int ready = state_->fds.poll(0);
  if (ready >= 0) state_->watchItems();
  if (ready != 0 || state_->hasBecomeReady()) state_->wakeUp.now();
  return ready;
}

}  // namespace zel
