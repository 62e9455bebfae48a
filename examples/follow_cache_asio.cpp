// Follows the board's configuration inside an Asio loop. The rule is that of follow_cache_epoll.cpp: take all
// notifications, then wait for ZeroMQ's descriptor, and for one second at most.

#include <asio.hpp>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>

#include "cache_follower.h"

namespace {

class Application {
 public:
  explicit Application(asio::io_context& loop) : descriptor_(loop), timer_(loop) {}
  ~Application() { descriptor_.release(); }  // it is ZeroMQ's: not ours to close
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  bool start() {
    PollFds fds;
    if (!follower_.subscribe(fds)) return false;
    int descriptor = -1;
    std::size_t size = sizeof descriptor;
    if (zmq_getsockopt(fds[0].socket, ZMQ_FD, &descriptor, &size) != 0) return false;
    descriptor_.assign(descriptor);
    updateAndWait();
    return true;
  }

 private:
  void updateAndWait() {
    follower_.update();
    show();
    descriptor_.async_wait(asio::posix::stream_descriptor::wait_read, [this](const asio::error_code& error) {
      if (!error) timer_.cancel();
    });
    timer_.expires_after(std::chrono::seconds(1));
    timer_.async_wait([this](const asio::error_code&) {
      descriptor_.cancel();
      updateAndWait();
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

  CacheFollower follower_;
  asio::posix::stream_descriptor descriptor_;
  asio::steady_timer timer_;
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
