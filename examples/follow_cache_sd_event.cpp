// Follows the board's configuration inside an sd-event loop: shows the RTSP port whenever it has changed, until SIGINT
// or SIGTERM.

#include <sys/epoll.h>
#include <systemd/sd-event.h>

#include <csignal>
#include <cstdio>

#include "cache_follower.h"
#include "common/event_descriptor.h"

namespace {

struct Application {
  PollFds fds;
  CacheFollower follower;
  zel::EventDescriptor events{fds};
  unsigned int shown = 0;
};

int update(sd_event_source*, int, uint32_t, void* application) {
  auto& [fds, follower, events, shown] = *static_cast<Application*>(application);
  events.poll();
  follower.update();
  unsigned int port = 0;
  follower.cache().getRtspTcpPort(&port);
  if (follower.cache().isInitialized() && port != shown) {
    std::printf("RTSP port %u\n", port);
    std::fflush(stdout);
    shown = port;
  }
  return 0;
}

void blockSignals() {
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  sigprocmask(SIG_BLOCK, &ends, nullptr);
}

}  // namespace

int main() {
  Application application;
  if (!application.follower.follow(application.fds)) return 1;

  blockSignals();  // sd-event reads them from a descriptor
  sd_event* loop = nullptr;
  if (sd_event_new(&loop) < 0 || sd_event_add_signal(loop, nullptr, SIGINT, nullptr, nullptr) < 0 ||
      sd_event_add_signal(loop, nullptr, SIGTERM, nullptr, nullptr) < 0 ||
      sd_event_add_io(loop, nullptr, application.events.descriptor(), EPOLLIN, update, &application) < 0) {
    return 1;
  }
  const int result = sd_event_loop(loop);
  sd_event_unref(loop);
  return result < 0 ? 1 : 0;
}
