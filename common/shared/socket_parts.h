#pragma once

#include <cerrno>
#include <chrono>
#include <limits>
#include <string>
#include <string_view>
#include <zmq.hpp>

// What the clients of this library share when they work with raw ZeroMQ sockets.

namespace zel {

using Clock = std::chrono::steady_clock;

/// The longest time-out. A longer one is shortened to it, so that a deadline does not overflow the clock.
constexpr std::chrono::milliseconds kLongestTime{std::numeric_limits<int>::max()};

/// An integer option of a socket, set before it connects. `setOption` passes ZMQ_MAXMSGSIZE as the 64-bit number that
/// libzmq expects.
struct SocketOption {
  int option;
  int value;
};

bool setOption(void* socket, const SocketOption& option);

/// Calls a ZeroMQ function again as long as a signal interrupts it. Any function that looks after its socket's internal
/// commands may be interrupted, whether it waits or not.
/// @return what the function returns
template <class Call>
int despiteSignals(Call call) {
  int result;
  do result = call();
  while (result < 0 && zmq_errno() == EINTR);
  return result;
}

/// As zmq_connect, whatever signals come.
int connect(void* socket, const std::string& address);

template <std::size_t count>
bool setOptions(void* socket, const SocketOption (&options)[count]) {
  for (const SocketOption& option : options) {
    if (!setOption(socket, option)) return false;
  }
  return true;
}

/// The frame that a socket receives, released with its scope.
class Frame {
 public:
  Frame() { zmq_msg_init(&message_); }
  ~Frame() { zmq_msg_close(&message_); }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  /// Takes the next frame in place of the one before, if there is one already; a signal does not disturb it.
  bool receiveNow(void* socket) {
    return despiteSignals([&] { return zmq_msg_recv(&message_, socket, ZMQ_DONTWAIT); }) >= 0;
  }
  /// Waits for the frame as long as the socket's ZMQ_RCVTIMEO says; a signal ends the wait with EINTR.
  bool receive(void* socket) { return zmq_msg_recv(&message_, socket, 0) >= 0; }
  /// Whether another frame of the same message follows.
  bool more() { return zmq_msg_more(&message_) != 0; }
  std::string_view text() { return {static_cast<const char*>(zmq_msg_data(&message_)), zmq_msg_size(&message_)}; }

 private:
  zmq_msg_t message_;
};

/// Which of ZMQ_POLLIN and ZMQ_POLLOUT the socket is ready for, whatever signals come. To ask lets libzmq look after
/// the socket's internal commands, too.
/// @return negative when the socket cannot be asked
inline int eventsOf(void* socket) {
  int events = 0;
  std::size_t size = sizeof events;
  const auto ask = [&] { return zmq_getsockopt(socket, ZMQ_EVENTS, &events, &size); };
  return despiteSignals(ask) == 0 ? events : -1;
}

/// The descriptor that is readable when there is something to do for the socket: ZMQ_FD. Negative: there is no socket.
inline int descriptorOf(void* socket) {
  int descriptor = -1;
  std::size_t size = sizeof descriptor;
  if (socket != nullptr) zmq_getsockopt(socket, ZMQ_FD, &descriptor, &size);
  return descriptor;
}

/// Whether the operation that failed may succeed when it is tried again after a wait.
bool mayTryAgain();

/// How long a wait may last until the deadline, rounded up to whole milliseconds; 0 when it has passed. A longer wait
/// than zmq_poll(3) can count is cut: the caller looks at the deadline again.
long millisecondsUntil(Clock::time_point deadline);

/// Waits until the item is ready; a signal does not end the wait.
/// @return false at the deadline, or when the item cannot be waited for any more
bool waitFor(zmq_pollitem_t item, Clock::time_point deadline);

}  // namespace zel
