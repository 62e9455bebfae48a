// Follows the board's configuration inside an sd-event loop. The rule is that of follow_cache_epoll.cpp: before each
// wait take notifications until there is none, and wait a second at most.

#include <json/value.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <cstdio>

#include "config/system_default_cfg.h"

namespace {

void takeNotifications(SystemDefaultCfg& cache, const zmq_pollitem_t& item) {
  for (;;) {
    try {
      if (cache.processEvent(item) == 0) return;
    } catch (const Json::Exception& wrongType) {
      std::fprintf(stderr, "a notification was dropped: %s\n", wrongType.what());
    }
  }
}

int descriptorOf(void* socket) {
  int descriptor = -1;
  std::size_t size = sizeof descriptor;
  zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
  return descriptor;
}

/// Wakes the loop, which does the rest before its next wait.
int woken(sd_event_source*, int, uint32_t, void*) { return 0; }

void blockEndSignals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
}

}  // namespace

int main() {
  blockEndSignals();  // sd-event reads them from a descriptor

  SystemDefaultCfg& cache = SystemDefaultCfg::getInstance();
  PollFds fds;
  if (cache.initSubscribers(fds) < 0) return 1;
  cache.init();

  sd_event* loop = nullptr;
  if (sd_event_new(&loop) < 0 || sd_event_add_signal(loop, nullptr, SIGINT, nullptr, nullptr) < 0 ||
      sd_event_add_signal(loop, nullptr, SIGTERM, nullptr, nullptr) < 0 ||
      sd_event_add_io(loop, nullptr, descriptorOf(fds[0].socket), EPOLLIN, woken, nullptr) < 0) {
    return 1;
  }
  constexpr uint64_t kOneSecond = 1000000;  // in microseconds
  unsigned int shown = 0;
  while (sd_event_get_state(loop) != SD_EVENT_FINISHED) {
    takeNotifications(cache, fds[0]);
    unsigned int port = 0;
    cache.getRtspTcpPort(&port);
    if (port != shown) std::printf("RTSP port %u\n", port);
    std::fflush(stdout);
    shown = port;
    if (sd_event_run(loop, kOneSecond) < 0) break;
  }
  sd_event_unref(loop);
  return 0;
}
