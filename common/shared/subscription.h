#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "common/shared/socket_owner.h"
#include "common/shared/socket_parts.h"

namespace zel {

/// How long a publisher may take to see the subscriptions of a new connection. They come right behind the handshake,
/// but a libzmq publisher that sends without a pause looks at them only every 3 million ticks of its processor's
/// counter, and a busy machine is slower. libzmq has no sign that a subscription is seen.
constexpr std::chrono::milliseconds kSubscribeTime{20};

/// A subscriber's side of the connection to a publisher: the SUB socket, and the care for the connection behind it.
///
/// libzmq itself reconnects when a peer goes away. It gives a connection up for good after a violation of its protocol,
/// a message over the limit included. Both look the same here; so after each loss the address is connected anew, unless
/// libzmq was faster.
class Subscription : public SocketOwner {
 public:
  /// @param name  of the class that has it, as log lines show it
  Subscription(zmq::context_t& context, const char* name) : context_(context), name_(name) {}
  ~Subscription() override = default;
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;

  /// Connects, and waits for the handshake with a publisher that is there, 200 ms at most. A second call drops what
  /// waits unread and makes the connection anew; the socket and its topics stay.
  /// @return false when the socket cannot be opened, the address is not valid, or the process is at its end
  bool open(const std::string& address);

  /// Connects without a wait: `handshakes` counts up when the connection can be used. Such a connection is renewed with
  /// a new socket, which needs no wait either; `descriptor` and `linkDescriptor` change then.
  /// @return as `open`
  bool openNow(const std::string& address, std::vector<std::string> topics);

  /// Runs an action with the open socket.
  /// @return what the action returns; nothing when there is no open socket or its use is refused
  template <class Action>
  auto whileOpen(Action action) -> std::optional<decltype(action())> {
    const Use use(*this);
    if (!use || link_.socket == nullptr) return {};
    return action();
  }

  void* socket() const { return link_.socket; }
  /// The descriptor that is readable when there is something to do for the socket; negative: none.
  int descriptor() const { return descriptorOf(link_.socket); }

  /// Adds or drops a topic: ZMQ_SUBSCRIBE or ZMQ_UNSUBSCRIBE. @return a status
  int setFilter(int option, const std::string& topic) const;

  /// Takes the frames of the next message: the topic, and the payload, which is empty unless there are exactly two.
  /// Tends the link when there is none.
  /// @return a status, or nothing when there is no message
  std::optional<int> take(std::string& topic, Frame& payload);

  /// Whether a handshake has succeeded, and no loss has been reported since.
  bool isLinked() const { return linked_; }
  /// How often a handshake has succeeded, and how often the connection was lost afterwards, as far as the events that
  /// `take` and `tendLink` have read.
  unsigned int handshakes() const { return handshakes_; }
  unsigned int losses() const { return losses_; }

  int linkDescriptor() const override { return descriptorOf(link_.monitor); }
  std::optional<Clock::time_point> tendLink(bool readable) override;

 protected:
  /// Whether messages wait. May take the sign of a message out of ZMQ_FD.
  bool mayHoldMessages() const;
  /// Makes a connection anew that never waits.
  void renew() { revive(); }
  void closeSockets() noexcept override;
  void forgetSockets() noexcept override;

 private:
  /// A SUB socket, and the PAIR socket on which libzmq reports the events of its connection.
  struct Monitored {
    void* socket = nullptr;
    void* monitor = nullptr;
  };
  struct CloseUnlessKept;

  bool replaceSocket();
  bool open(Monitored& pair, int events);
  void close(Monitored& pair) noexcept;
  static int nextEvent(const Monitored& pair);
  static int awaitEvent(const Monitored& pair, Clock::time_point deadline);
  bool isListening(Clock::time_point deadline);
  bool establish(Clock::time_point deadline);
  bool drop();
  bool takeMessage() const;
  void noteEvents();
  void noteEvent(int event);
  void revive();
  void disconnect();
  void awaitEnd() const;
  void forgetLink() noexcept;

  zmq::context_t& context_;
  const char* const name_;
  std::string address_;
  std::optional<std::vector<std::string>> topics_;  ///< of a connection that never waits; those of others are not kept
  Monitored link_;
  bool linked_ = false;
  unsigned int handshakes_ = 0;
  unsigned int losses_ = 0;
  std::optional<Clock::time_point> reviveAt_;
};

}  // namespace zel
