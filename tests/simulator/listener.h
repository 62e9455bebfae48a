#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "client/endpoints.h"
#include "common/poll_fds.h"
#include "common/subscribe_json_client.h"
#include "tests/support/wait_until.h"

namespace zel::test {

/// Receives what the board publishes.
class Listener {
 public:
  /// Is subscribed when it returns: what is published from here on is received.
  Listener(zmq::context_t& context, const std::vector<std::string>& topics) : client_(context) {
    EXPECT_EQ(client_.connect(zel::notificationEndpoint()), 0);
    for (const std::string& topic : topics) EXPECT_EQ(client_.subscribe(topic), 0);
    EXPECT_EQ(client_.getPollItems(fds_), 0);
    std::this_thread::sleep_for(kSubscribeTime);
  }

  /// Takes notifications until one is it.
  /// @param isIt  (topic, payload) -> bool
  /// @return false when none came
  template <class Predicate>
  bool waitFor(Predicate isIt) {
    bool found = false;
    return waitUntil([&] {
      fds_.poll(10);
      std::string topic;
      int error = 0;
      Json::Value payload;
      while (!found && client_.processEvent(fds_[0], topic, error, payload) != 0) {
        EXPECT_EQ(error, 0);
        found = isIt(topic, payload);
      }
      return found;
    });
  }

 private:
  /// Nothing tells when the publisher has seen a subscription.
  static constexpr std::chrono::milliseconds kSubscribeTime{20 * kSlowdown};

  SubscribeJsonClient client_;
  PollFds fds_;
};

}  // namespace zel::test
