#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>
#include <zmq.hpp>

namespace zel::sim {

/// The daemon's publisher: sends messages to the subscribers of their topics.
///
/// libzmq takes subscriptions in the thread that sends, and clients decide how many there are. So the publisher has a
/// thread of its own, and the board answers requests however long that takes.
/// Threads: `publish` from any thread; everything else from one.
class Publisher {
 public:
  using Frames = std::vector<std::string>;
  using OnSubscription = std::function<void(const std::string& prefix)>;

  /// @param onSubscription  called in the publisher's thread whenever a client subscribes; empty: not called
  Publisher(zmq::context_t& context, OnSubscription onSubscription);
  /// Sends all that was published, as `end` does.
  ~Publisher();
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  /// Listens, and sends from now on. @throws zmq::error_t when it cannot
  void bind(const std::string& endpoint);
  /// Where it listens, as libzmq writes it.
  const std::string& endpoint() const { return endpoint_; }

  /// Has a message sent soon. When too much waits to be sent, the message is dropped, as libzmq drops those that a
  /// client does not fetch.
  void publish(Frames frames);

  /// Sends all that was published and closes the socket.
  /// @param lingerMs  how long libzmq may take to hand it to the kernel
  void end(int lingerMs);

 private:
  void run();
  bool wait(bool already);
  bool takeSubscriptions();
  void sendAll();
  bool takeWaiting(Frames& frames);

  zmq::socket_t socket_;
  OnSubscription onSubscription_;
  std::string endpoint_;
  int wakeUp_;  ///< an eventfd
  std::mutex mutex_;
  bool ending_ = false;
  std::deque<Frames> waiting_;
  std::size_t waitingBytes_ = 0;
  std::thread thread_;
};

}  // namespace zel::sim
