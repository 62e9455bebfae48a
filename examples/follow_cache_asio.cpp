// Follows the board's configuration inside an Asio loop. The rule is that of follow_cache_epoll.cpp: take notifications
// until there is none, then wait for ZeroMQ's descriptor, and for a second at most.

#include <json/value.h>

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>

#include "config/system_default_cfg.h"

namespace {

class Follower {
 public:
  explicit Follower(asio::io_context& loop) : descriptor_(loop), timer_(loop) {}
  ~Follower() { descriptor_.release(); }  // ZeroMQ's own: not ours to close
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  bool start() {
    if (cache_.initSubscribers(fds_) < 0) return false;
    cache_.init();
    int descriptor = -1;
    std::size_t size = sizeof descriptor;
    if (zmq_getsockopt(fds_[0].socket, ZMQ_FD, &descriptor, &size) != 0) return false;
    descriptor_.assign(descriptor);
    takeAndWait();
    return true;
  }

 private:
  void takeAndWait() {
    takeNotifications();
    show();
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const asio::error_code& error) {
      if (!error) timer_.cancel();
    });
    timer_.expires_after(std::chrono::seconds(1));
    timer_.async_wait([this](const asio::error_code&) {
      descriptor_.cancel();
      takeAndWait();
    });
  }

  void takeNotifications() {
    for (;;) {
      try {
        if (cache_.processEvent(fds_[0]) == 0) return;
      } catch (const Json::Exception& wrongType) {
        std::fprintf(stderr, "a notification was dropped: %s\n", wrongType.what());
      }
    }
  }

  void show() {
    unsigned int port = 0;
    cache_.getRtspTcpPort(&port);
    if (port != shown_) std::printf("RTSP port %u\n", port);
    std::fflush(stdout);
    shown_ = port;
  }

  SystemDefaultCfg& cache_ = SystemDefaultCfg::getInstance();
  PollFds fds_;
  asio::posix::stream_descriptor descriptor_;
  asio::steady_timer timer_;
  unsigned int shown_ = 0;
};

}  // namespace

int main() try {
  asio::io_context loop;
  asio::signal_set ends(loop, SIGINT, SIGTERM);
  ends.async_wait([&loop](const asio::error_code&, int) { loop.stop(); });

  Follower follower(loop);
  if (!follower.start()) return 1;
  loop.run();
  return 0;
} catch (const std::exception& error) {  // Asio's own
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
