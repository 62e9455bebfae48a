#pragma once

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

namespace zel::test {

/// A request as it came over the wire.
struct Request {
  std::string id;                   ///< the text of the first frame
  std::string body;                 ///< the text of the second frame
  Json::Value json;                 ///< the body parsed; null when it is empty or no JSON
  std::vector<std::string> frames;  ///< all frames, behind the envelope
  std::string peer;                 ///< what tells one connection from another
};

/// One message that the daemon sends when a request has come.
struct Answer {
  /// Around the frames: what belongs there, no empty delimiter, or another request's number.
  enum class Envelope { kRight, kWithoutDelimiter, kOfAnotherRequest };

  Answer() = default;
  Answer(const Json::Value& document);  // NOLINT(google-explicit-constructor): tables are of documents or texts
  Answer(const char* text) : Answer(std::string(text)) {}               // NOLINT(google-explicit-constructor)
  Answer(std::string text) : frames{std::move(text)} {}                 // NOLINT(google-explicit-constructor)
  Answer(std::vector<std::string> parts) : frames(std::move(parts)) {}  // NOLINT(google-explicit-constructor)
  Answer after(std::chrono::milliseconds wait) &&;
  Answer inside(Envelope kind) &&;

  std::vector<std::string> frames;
  std::chrono::milliseconds delay{0};  ///< since the request came; meanwhile the daemon takes further requests
  Envelope envelope = Envelope::kRight;
};

/// A real ZeroMQ peer in the daemon's place: a ROUTER socket in a thread of its own, which records every request and
/// answers as the test says. A request is answered by the next of the queued answers; when there is none, by
/// `onRequest`; and without that by an empty object.
///
///     ScriptedDaemon daemon;
///     daemon.answer(R"({"status": -5})");
///     ... call ...
///     EXPECT_EQ(daemon.lastRequest().id, "3");
///
/// Threads: every operation may be called from any thread.
class ScriptedDaemon {
 public:
  static constexpr const char* kEndpoint = "tcp://127.0.0.1:5556";
  using Handler = std::function<std::vector<Answer>(const Request& request)>;

  /// Listens when it returns. @throws zmq::error_t when the port is taken
  explicit ScriptedDaemon(const std::string& endpoint = kEndpoint);
  /// Nothing answers any more, and the port is free, when it returns.
  ~ScriptedDaemon();
  ScriptedDaemon(const ScriptedDaemon&) = delete;
  ScriptedDaemon& operator=(const ScriptedDaemon&) = delete;

  /// Queues the answer to one request.
  void answer(Answer message);
  /// Queues several messages to one request; none at all leaves it unanswered.
  void answerWith(std::vector<Answer> messages);
  /// Answers what finds no queued answer. Runs in the daemon's thread.
  void onRequest(Handler handler);

  /// All requests so far, oldest first.
  std::vector<Request> requests() const;
  std::size_t requestCount() const;
  /// The newest request; one without frames when there was none.
  Request lastRequest() const;
  /// Waits until so many requests have come. @return whether they have
  bool waitForRequests(std::size_t count) const;

 private:
  using Clock = std::chrono::steady_clock;
  struct Delayed {
    std::vector<std::string> envelope;
    Answer answer;
  };

  void serve();
  void take();
  void sendDue();
  void send(const Delayed& message);

  zmq::context_t context_;
  zmq::socket_t router_;
  zmq::socket_t stop_;
  std::multimap<Clock::time_point, Delayed> delayed_;

  mutable std::mutex mutex_;
  mutable std::condition_variable came_;
  std::vector<Request> requests_;
  std::deque<std::vector<Answer>> queue_;
  Handler handler_;
  std::thread thread_;
};

/// A real ZeroMQ publisher in the daemon's place. Its XPUB socket sees the subscriptions come and go.
/// Threads: one caller at a time.
class PublisherFake {
 public:
  static constexpr const char* kEndpoint = "tcp://127.0.0.1:5575";

  /// Listens when it returns. @throws zmq::error_t when the port is taken
  explicit PublisherFake(const std::string& endpoint = kEndpoint);
  /// The port is free when it returns.
  ~PublisherFake();
  PublisherFake(const PublisherFake&) = delete;
  PublisherFake& operator=(const PublisherFake&) = delete;

  /// Sends one message of two frames, as the daemon does.
  void publish(const std::string& topic, const std::string& payload) { publish({topic, payload}); }
  void publish(const std::vector<std::string>& frames);

  /// How many subscribers hold this very subscription now. XPUB tells the first and the last of equal ones only, so
  /// it is 0 or 1.
  std::size_t subscriptions(const std::string& topic);
  /// Waits until somebody is subscribed, or nobody any more. @return whether it came to that
  bool waitForSubscription(const std::string& topic);
  bool waitForUnsubscription(const std::string& topic);

 private:
  zmq::context_t context_;
  zmq::socket_t publisher_;
  std::map<std::string, std::size_t> subscriptions_;
};

}  // namespace zel::test
