// The library, used as an application uses it.

#include <cstdio>
#include <cstdlib>

#include "bench/contestant.h"
#include "client/sysmgr_client.h"
#include "client/zmq_utils.h"
#include "common/poll_fds.h"
#include "config/system_default_cfg.h"

namespace zel::bench {

namespace {

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "library: %s\n", what);
  std::exit(1);
}

class Library final : public Contestant {
 public:
  void connect() override { require(client_.init(ZmqUtils::getInstance().getContext()) == 0, "init"); }
  void set(std::uint32_t port) override { require(client_.setRtspTcpPort(port) == 0, "set"); }
  void get() override { require(client_.getStoredParameters(stored_) == 0, "get"); }

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

 private:
  static constexpr long kTimeoutMs = 10000;
  static SystemDefaultCfg& cache() { return SystemDefaultCfg::getInstance(); }

  SysMgrClient client_;
  SysParameters stored_;
  PollFds poll_;
};

}  // namespace

Contestant& contestant() {
  static Library library;
  return library;
}

}  // namespace zel::bench
