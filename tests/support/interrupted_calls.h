#pragma once

#include <atomic>

namespace zel::test {

/// Which of the next calls of some ZeroMQ functions a signal is to interrupt. libzmq looks after its internal commands
/// in them, and a signal that comes just then ends the call with EINTR, before it has done anything.
struct InterruptedCalls {
  // So many, in whatever thread.
  std::atomic<int> connect{0};
  std::atomic<int> disconnect{0};
  std::atomic<int> monitor{0};       ///< zmq_socket_monitor that begins
  std::atomic<int> askForEvents{0};  ///< zmq_getsockopt of ZMQ_EVENTS

  /// The first, the third and so on of zmq_send, and of zmq_getsockopt of ZMQ_EVENTS: who works in turn with another
  /// thread is interrupted whenever it has its turn.
  std::atomic<bool> everySecond{false};
};
extern InterruptedCalls interruptedCalls;

}  // namespace zel::test
