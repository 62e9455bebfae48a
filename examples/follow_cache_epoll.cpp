// Follows the board's configuration inside an epoll loop: shows the RTSP port whenever it has changed, until SIGINT or
// SIGTERM.

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "cache_follower.h"
#include "common/event_descriptor.h"

namespace {

int signalDescriptor() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
  return signalfd(-1, &ends, SFD_CLOEXEC);
}

bool watch(int epoll, int descriptor) {
  epoll_event event{};
  event.events = EPOLLIN;  // level-triggered
  event.data.fd = descriptor;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

int main() {
  PollFds fds;
  CacheFollower follower;
  if (!follower.follow(fds)) return 1;
  zel::EventDescriptor events(fds);

  const int signals = signalDescriptor();
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  if (!watch(epoll, events.descriptor()) || !watch(epoll, signals)) return 1;

  unsigned int shown = 0;
  for (;;) {
    epoll_event event{};
    if (epoll_wait(epoll, &event, 1, -1) < 0) continue;  // EINTR: the process was stopped, and goes on
    if (event.data.fd == signals) break;
    events.poll();
    follower.update();
    unsigned int port = 0;
    follower.cache().getRtspTcpPort(&port);
    if (follower.cache().isInitialized() && port != shown) {
      std::printf("RTSP port %u\n", port);
      std::fflush(stdout);
      shown = port;
    }
  }
  close(epoll);
  close(signals);
}
