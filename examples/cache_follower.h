#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdio>

#include "client/sysmgr_jsonApi.h"
#include "client/zmq_utils.h"
#include "config/system_default_cfg.h"

/// A client that waits 100 ms for an answer, where the cache's own client waits 5 s.
class QuickClient final : public SysMgrJsonClient {
 public:
  int getClientTimeout() override { return 100; }
};

/// Keeps the process's cache equal to the daemon's state, on the thread of the application's loop.
///
/// The loop calls `update` before each wait, and waits for one second at most.
class CacheFollower {
 public:
  /// Fetches the configuration. Without a daemon this takes 5 s.
  CacheFollower() { client_.init(ZmqUtils::getInstance().getContext()); }

  /// Subscribes, and adds the subscription to the application's poll set. @return whether that succeeded
  bool subscribe(PollFds& fds) {
    if (cache_.initSubscribers(fds) < 0) return false;
    item_ = fds[fds.size() - 1];
    return true;
  }

  /// Fetches if it is time to, then takes notifications until none is left.
  void update() {
    if (Clock::now() >= nextFetch_) fetch();
    while (takeNotification()) continue;
  }

  const SystemDefaultCfg& cache() const { return cache_; }

 private:
  using Clock = std::chrono::steady_clock;

  /// `init` waits 5 s for a daemon that does not answer: a client that gives up sooner asks first.
  void fetch() {
    nextFetch_ = Clock::now() + std::chrono::seconds(2);
    Json::Value reply;
    if (client_.getBoardModel(reply) < 0) return;  // the log says why
    try {
      cache_.init();
    } catch (const Json::Exception& error) {
      showWrongType(error);
    }
  }

  /// @return whether there was a notification
  bool takeNotification() {
    try {
      return cache_.processEvent(item_) != 0;
    } catch (const Json::Exception& error) {
      showWrongType(error);
      return true;
    }
  }

  /// The cache keeps what it had and works on.
  static void showWrongType(const Json::Exception& error) {
    std::fprintf(stderr, "a document of the daemon's has a value of a wrong type: %s\n", error.what());
  }

  SystemDefaultCfg& cache_ = SystemDefaultCfg::getInstance();
  QuickClient client_;
  zmq_pollitem_t item_{};
  Clock::time_point nextFetch_;  ///< the first `update` fetches
};
