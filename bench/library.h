#pragma once

#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "bench/contestant.h"
#include "client/async_client.h"
#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "common/poll_fds.h"
#include "config/system_default_cfg.h"

namespace zel::bench {

inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "library: %s\n", what);
  std::exit(1);
}

/// The library, used as an application uses it.
class Library : public Contestant {
 public:
  void connect() override { require(client_.init(ZmqUtils::getInstance().getContext()) == 0, "init"); }
  void set(std::uint32_t port) override { require(client_.setRtspTcpPort(port) == 0, "set"); }
  void get() override { require(client_.getStoredParameters(stored_) == 0, "get"); }

  void connectLoop() override { loop_ = std::make_unique<AsyncClient>(ZmqUtils::getInstance().getContext()); }
  void setInLoop(std::uint32_t port) override { queueInLoop(port, 1); }
  void queueInLoop(std::uint32_t firstPort, int count) override {
    int left = count;
    for (int i = 0; i < count; ++i) {
      loop_->submit(requests::set(settings::kRtspTcpPort, firstPort + static_cast<std::uint32_t>(i)),
                    [&left](const Answer<void>& answer) {
                      require(answer.ok(), "set in a loop");
                      --left;
                    });
    }
    pollfd watched{loop_->descriptor(), POLLIN, 0};
    while (left > 0) {
      require(poll(&watched, 1, kTimeoutMs) == 1, "no wake-up");
      loop_->process();
    }
  }

  void fetchAll() override { require(cache().isInitialized(), "the cache"); }
  void follow() override { require(cache().initSubscribers(poll_) == 0, "subscribe"); }
  int absorb() override {
    require(poll_.poll(kTimeoutMs) > 0, "no notification");
    int taken = 0;
    for (const zmq_pollitem_t& item : poll_) taken += cache().processEvent(item) != 0;
    return taken;
  }
  std::uint32_t cachedPort() override {
    unsigned int port = 0;
    cache().getRtspTcpPort(&port);
    return port;
  }

 protected:
  static constexpr int kTimeoutMs = 10000;

 private:
  static SystemDefaultCfg& cache() { return SystemDefaultCfg::getInstance(); }

  SysMgrClient client_;
  std::unique_ptr<AsyncClient> loop_;
  SysParameters stored_;
  PollFds poll_;
};

}  // namespace zel::bench
