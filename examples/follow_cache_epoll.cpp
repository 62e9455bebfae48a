// Follows the board's configuration inside an epoll loop: shows the RTSP port whenever it has changed, until SIGINT or
// SIGTERM.
//
// ZeroMQ's descriptor, ZMQ_FD, is edge-triggered, also where epoll is level-triggered: it becomes readable once when
// something happens to the socket, and stays silent while messages wait. So the loop takes all notifications before
// each wait. And it waits for one second at most: a connection that libzmq has given up makes no descriptor readable;
// `processEvent` renews it.

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "cache_follower.h"

namespace {

int signalDescriptor() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

/// ZeroMQ's descriptor: only to be waited for, never read.
int descriptorOf(void* socket) {
  int descriptor = -1;
  std::size_t size = sizeof descriptor;
  zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
  return descriptor;
}

bool watch(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

int main() {
  PollFds fds;
  CacheFollower follower;
  if (!follower.subscribe(fds)) return 1;

  const int signals = signalDescriptor();
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!watch(epoll, descriptorOf(fds[0].socket)) || !watch(epoll, signals)) return 1;

  unsigned int shown = 0;
  for (;;) {
    follower.update();
    unsigned int port = 0;
    follower.cache().getRtspTcpPort(&port);
    if (follower.cache().isInitialized() && port != shown) {
      std::printf("RTSP port %u\n", port);
      std::fflush(stdout);
      shown = port;
    }

    epoll_event event{};
    const int ready = epoll_wait(epoll, &event, 1, 1000);
    if (ready > 0 && event.data.fd == signals) break;
  }
  close(epoll);
  close(signals);
}
