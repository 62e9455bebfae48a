#pragma once

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "conformance/client.h"
#include "conformance/observer.h"

namespace zel::conformance {

struct Options {
  std::string requestEndpoint;
  std::string notificationEndpoint;
  std::chrono::milliseconds patience{5000};
  bool write = false;
  bool allowReset = false;
  bool allowReboot = false;
  std::string restartCommand;
};

/// One run: two clients and a follower of everything at the daemon, and what the present check finds.
/// Threads: one caller at a time.
class Session {
 public:
  explicit Session(const Options& options);

  const Options& options() const { return options_; }
  zmq::context_t& context() { return context_; }
  Client& client() { return client_; }
  /// Another one, so that what one client changed is read by the other.
  Client& other() { return other_; }
  Follower& follower() { return follower_; }
  Observer& observer() { return observer_; }

  // --- what a check says

  void fail(const std::string& text);
  bool expect(bool isTrue, const std::string& text);
  /// Expects that a request is refused. @return whether it is
  bool expectRefused(const Answer& answer);
  /// Expects that a request is accepted. @return whether it is
  bool expectAccepted(const Answer& answer);
  /// The check does not apply to this daemon.
  void skip(const std::string& why) { skipped_ = why; }

  void beginCheck();
  const std::vector<std::string>& failures() const { return failures_; }
  const std::string& skipped() const { return skipped_; }

  // --- what checks ask for

  /// The member of a query's answer; null when there is none.
  Json::Value query(int id);
  Json::Value stored();
  Json::Value whitelist();
  /// Sends a SET request (command 2).
  Answer set(const std::string& key, const Json::Value& value);
  /// Sends a command of the whitelist with one entry.
  Answer changeWhitelist(int id, const std::string& ip, const std::string& mask, bool enabled);
  /// Multicast addresses that the whitelist does not have.
  std::vector<std::string> freeGroups(std::size_t count);
  /// Waits for a notification after a change.
  template <class Wanted>
  bool seen(const char* topic, Wanted wanted) {
    // A daemon that does not publish is not waited for each time.
    const bool isSeen = follower_.waitFor(topic, notSeen_ < kMostNotSeen ? kNotificationLimit : kShortLimit, wanted);
    if (!isSeen) ++notSeen_;
    return isSeen;
  }

 private:
  static constexpr std::chrono::milliseconds kNotificationLimit{2000};
  static constexpr std::chrono::milliseconds kShortLimit{50};
  static constexpr int kMostNotSeen = 3;

  Options options_;
  zmq::context_t context_;
  Observer observer_;
  Client client_;
  Client other_;
  Follower follower_;
  int notSeen_ = 0;
  std::vector<std::string> failures_;
  std::string skipped_;
};

}  // namespace zel::conformance
