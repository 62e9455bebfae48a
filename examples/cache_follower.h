#pragma once

#include <json/value.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>

#include "client/async_client.h"
#include "client/zmq_utils.h"
#include "config/system_default_cfg.h"

/// Keeps the process's cache equal to the daemon's state, on the thread of the application's loop.
class CacheFollower {
 public:
  /// Fetches the configuration. Without a daemon this takes 5 s.
  CacheFollower() { cache_.getClientReference().setTimeout(std::chrono::milliseconds(500)); }
  ~CacheFollower() { close(timer_); }
  CacheFollower(const CacheFollower&) = delete;
  CacheFollower& operator=(const CacheFollower&) = delete;

  /// Subscribes, and adds to the application's poll set what it has to wait for. @return whether that succeeded
  bool follow(PollFds& fds) {
    if (cache_.initSubscribers(fds) < 0) return false;
    item_ = fds[fds.size() - 1];
    fds.add({nullptr, client_.descriptor(), ZMQ_POLLIN, 0});
    fds.add({nullptr, timer_, ZMQ_POLLIN, 0});
    const itimerspec everyTwoSeconds{{2, 0}, {0, 1}};  // the first time at once
    return timerfd_settime(timer_, 0, &everyTwoSeconds, nullptr) == 0;
  }

  /// Does what is due. To be called whenever an item of the set is ready.
  void update() {
    std::uint64_t expirations = 0;
    if (read(timer_, &expirations, sizeof expirations) > 0 && client_.pending() == 0) fetchIfTheDaemonAnswers();
    client_.process();
    while (takeNotification()) continue;
  }

  const SystemDefaultCfg& cache() const { return cache_; }

 private:
  void fetchIfTheDaemonAnswers() {
    client_.submit(zel::requests::boardModel(), [this](const zel::Answer<BoardModel>& answer) {
      if (answer.ok()) {
        fetch();
      } else {
        std::fprintf(stderr, "%s\n", answer.text.c_str());
      }
    });
  }

  void fetch() {
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
  zel::AsyncClient client_{ZmqUtils::getInstance().getContext()};
  zmq_pollitem_t item_{};
  const int timer_ = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
};
