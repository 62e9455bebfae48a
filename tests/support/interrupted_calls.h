#pragma once

#include <atomic>

namespace zel::test {

/// How many of the next calls of some ZeroMQ functions a signal is to interrupt. libzmq looks after its internal
/// commands in them, and a signal that comes just then ends the call with EINTR, before it has done anything.
struct InterruptedCalls {
  std::atomic<int> connect{0};
  std::atomic<int> disconnect{0};
  std::atomic<int> askForEvents{0};  ///< zmq_getsockopt of ZMQ_EVENTS
};
extern InterruptedCalls interruptedCalls;

}  // namespace zel::test
