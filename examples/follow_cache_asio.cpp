// Follows the board's configuration inside an Asio loop: shows the RTSP port whenever it has changed, until SIGINT or
// SIGTERM.

#include <unistd.h>

#include <asio.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "cache_follower.h"
#include "common/event_descriptor.h"

namespace {

class Application {
 public:
  explicit Application(asio::io_context& loop) : due_(loop, dup(events_.descriptor())) {}  // the loop closes this one

  bool start() {
    if (!follower_.follow(fds_)) return false;
    updateWhenReadable();
    return true;
  }

 private:
  void updateWhenReadable() {
    due_.async_wait(due_.wait_read, [this](const asio::error_code& error) {
      if (error) return;
      events_.poll();
      follower_.update();
      show();
      updateWhenReadable();
    });
  }

  void show() {
    unsigned int port = 0;
    follower_.cache().getRtspTcpPort(&port);
    if (!follower_.cache().isInitialized() || port == shown_) return;
    std::printf("RTSP port %u\n", port);
    std::fflush(stdout);
    shown_ = port;
  }

  PollFds fds_;
  CacheFollower follower_;
  zel::EventDescriptor events_{fds_};
  asio::posix::stream_descriptor due_;
  unsigned int shown_ = 0;
};

}  // namespace

int main() try {
  asio::io_context loop;
  Application application(loop);
  asio::signal_set ends(loop, SIGINT, SIGTERM);
  ends.async_wait([&loop](const asio::error_code&, int) { loop.stop(); });
  if (!application.start()) return 1;
  loop.run();
  return 0;
} catch (const std::exception& error) {  // Asio's own
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
