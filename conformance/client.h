#pragma once

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "conformance/observer.h"

namespace zel::conformance {

/// What came for a request.
struct Answer {
  std::string request;  ///< for a finding: command 2 {"rtsp-tcp-port":5004}
  bool came = false;
  std::vector<std::string> frames;  ///< behind the envelope
  Json::Value document;             ///< null where the answer is not usable

  int status() const;
  bool accepted() const { return document.isObject() && status() >= 0; }
  bool refused() const { return document.isObject() && status() < 0; }
  /// The answer as a finding shows it.
  std::string text() const;
};

/// A client of the request endpoint on a raw socket, which makes the envelopes itself. The observer judges each answer.
/// Threads: one caller at a time.
class Client {
 public:
  using Milliseconds = std::chrono::milliseconds;

  Client(zmq::context_t& context, std::string endpoint, Milliseconds patience, Observer& observer);

  /// Sends a request and waits for its answer.
  /// @param body  null: an empty frame
  /// @throws Stopped when the daemon is gone, or when it left requests unanswered before
  Answer ask(int id, const Json::Value& body = {});
  Answer ask(const std::string& id, const std::string& body) { return askFrames({id, body}); }
  Answer askFrames(const std::vector<std::string>& content);

  /// Sends a request without waiting.
  void send(const std::vector<std::string>& content);
  /// Sends a message as it is, without an envelope. @return whether it left
  bool sendRaw(const std::vector<std::string>& frames);
  /// Waits for the answer of the request that was sent last.
  Answer receive();
  /// Takes what has come unasked until now: answers that are late or that come twice.
  void drain();
  /// Opens a new connection.
  void reconnect();
  /// Waits until the daemon takes requests again, on the connection that there is. @return whether it does
  bool waitUntilServed(Milliseconds limit);

 private:
  std::vector<std::string> envelope(std::uint32_t number) const;
  bool receiveMessage(std::vector<std::string>& frames, std::chrono::steady_clock::time_point deadline);
  Answer take(std::vector<std::string> frames);

  zmq::context_t& context_;
  std::string endpoint_;
  Milliseconds patience_;
  Observer& observer_;
  zmq::socket_t socket_;
  std::uint32_t number_ = 0;
  std::string request_;  ///< the one that was sent last
  int id_ = -1;
  bool isQuery_ = false;
  std::chrono::steady_clock::time_point sent_;
  bool wasConnected_ = false;
};

/// A notification.
struct Notice {
  std::string topic;
  Json::Value payload;
};

/// A subscriber of the notification endpoint. The observer judges each notification.
/// Threads: one caller at a time.
class Follower {
 public:
  using Milliseconds = std::chrono::milliseconds;

  Follower(zmq::context_t& context, const std::string& endpoint, Observer& observer);
  void subscribe(const std::string& topic);
  void unsubscribe(const std::string& topic);

  /// Waits for a notification. @return whether one came; one that cannot be read has an empty topic
  bool next(Notice& notice, Milliseconds limit);
  /// Waits for a notification of a topic whose payload is as wanted. @return whether it came
  template <class Wanted>
  bool waitFor(const std::string& topic, Milliseconds limit, Wanted wanted) {
    const auto end = std::chrono::steady_clock::now() + limit;
    for (Notice notice; std::chrono::steady_clock::now() < end;) {
      if (next(notice, std::chrono::ceil<Milliseconds>(end - std::chrono::steady_clock::now())) &&
          notice.topic == topic && wanted(notice.payload)) {
        return true;
      }
    }
    return false;
  }
  /// Takes what comes until nothing comes for a while.
  std::vector<Notice> settle();

 private:
  zmq::socket_t socket_;
  Observer& observer_;
};

}  // namespace zel::conformance
