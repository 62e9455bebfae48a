// Follows the board's configuration inside an epoll loop: shows the RTSP port whenever it has changed, until it is told
// to end.
//
// ZeroMQ's descriptor, ZMQ_FD, tells that something may have happened to the socket, not that a message is there, and
// it tells it once: it is edge-triggered, also where epoll is level-triggered. A loop that waits while messages are
// there already sleeps until the next one comes. So:
//   - before each wait, take notifications until there is none;
//   - wait with a time-out: a connection that is gone for good wakes nobody, and the same calls revive it.

#include <json/value.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "config/system_default_cfg.h"

namespace {

void takeNotifications(SystemDefaultCfg& cache, const zmq_pollitem_t& item) {
  for (;;) {
    try {
      if (cache.processEvent(item) == 0) return;
    } catch (const Json::Exception& wrongType) {
      // The cache keeps what it had and works on.
      std::fprintf(stderr, "a notification was dropped: %s\n", wrongType.what());
    }
  }
}

int endDescriptor() {
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
  const int end = endDescriptor();

  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  PollFds fds;
  if (cache.initSubscribers(fds) < 0) return 1;
  cache.init();
  const zmq_pollitem_t item = fds[0];

  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!watch(epoll, descriptorOf(item.socket)) || !watch(epoll, end)) return 1;

  unsigned int shown = 0;
  for (;;) {
    takeNotifications(cache, item);
    if (!cache.isInitialized()) cache.init();  // there was no daemon at the start

    unsigned int port = 0;
    cache.getRtspTcpPort(&port);
    if (port != shown) std::printf("RTSP port %u\n", port);
    std::fflush(stdout);
    shown = port;

    epoll_event event{};
    const int ready = epoll_wait(epoll, &event, 1, 1000);
    if (ready > 0 && event.data.fd == end) break;
  }
  close(epoll);
  close(end);
  return 0;
}
