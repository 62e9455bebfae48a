// Follows the board's configuration inside an sd-event loop. The rule is that of follow_cache_epoll.cpp: before each
// wait take all notifications, and wait for one second at most.

#include <systemd/sd-event.h>

#include <csignal>
#include <cstdio>

#include "cache_follower.h"

namespace {

int descriptorOf(void* socket) {
  int descriptor = -1;
  std::size_t size = sizeof descriptor;
  zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
  return descriptor;
}

/// Ends the wait: `update` follows before the next one.
int woken(sd_event_source*, int, uint32_t, void*) { return 0; }

void blockSignals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
}

}  // namespace

int main() {
  PollFds fds;
  CacheFollower follower;
  if (!follower.subscribe(fds)) return 1;

  blockSignals();  // sd-event reads them from a descriptor
  sd_event* loop = nullptr;
  if (sd_event_new(&loop) < 0 || sd_event_add_signal(loop, nullptr, SIGINT, nullptr, nullptr) < 0 ||
      sd_event_add_signal(loop, nullptr, SIGTERM, nullptr, nullptr) < 0 ||
      sd_event_add_io(loop, nullptr, descriptorOf(fds[0].socket), EPOLLIN, woken, nullptr) < 0) {
    return 1;
  }
  constexpr uint64_t kOneSecond = 1000000;  // in microseconds
  unsigned int shown = 0;
  while (sd_event_get_state(loop) != SD_EVENT_FINISHED) {
    follower.update();
    unsigned int port = 0;
    follower.cache().getRtspTcpPort(&port);
    if (follower.cache().isInitialized() && port != shown) {
      std::printf("RTSP port %u\n", port);
      std::fflush(stdout);
      shown = port;
    }
    if (sd_event_run(loop, kOneSecond) < 0) break;
  }
  sd_event_unref(loop);
}
