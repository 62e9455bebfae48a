#include "tests/support/interrupted_calls.h"

#include <dlfcn.h>
#include <zmq.h>

#include <cerrno>

namespace zel::test {

InterruptedCalls interruptedCalls;

namespace {

bool isInterrupted(std::atomic<int>& left) {
  if (left == 0) return false;
  --left;
  errno = EINTR;
  return true;
}

bool isInterruptedInTurn(std::atomic<unsigned>& calls) {
  if (!interruptedCalls.everySecond || calls++ % 2 != 0) return false;
  errno = EINTR;
  return true;
}

std::atomic<unsigned> sends;
std::atomic<unsigned> questions;

/// libzmq's own function.
template <class Function>
Function* own(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Looked up when the program is loaded. Where a thread looked one up with its first call, a child forked meanwhile
// would wait for that thread, which it does not have.
const auto ownConnect = own<decltype(zmq_connect)>("zmq_connect");
const auto ownDisconnect = own<decltype(zmq_disconnect)>("zmq_disconnect");
const auto ownMonitor = own<decltype(zmq_socket_monitor)>("zmq_socket_monitor");
const auto ownGetsockopt = own<decltype(zmq_getsockopt)>("zmq_getsockopt");
const auto ownSend = own<decltype(zmq_send)>("zmq_send");

}  // namespace

}  // namespace zel::test

using namespace zel::test;

// They stand before libzmq's own.

extern "C" int zmq_connect(void* socket, const char* address) {
  return isInterrupted(interruptedCalls.connect) ? -1 : ownConnect(socket, address);
}

extern "C" int zmq_disconnect(void* socket, const char* address) {
  return isInterrupted(interruptedCalls.disconnect) ? -1 : ownDisconnect(socket, address);
}

extern "C" int zmq_socket_monitor(void* socket, const char* endpoint, int events) {
  if (endpoint != nullptr && isInterrupted(interruptedCalls.monitor)) return -1;
  return ownMonitor(socket, endpoint, events);
}

extern "C" int zmq_getsockopt(void* socket, int option, void* value, size_t* size) {
  if (option == ZMQ_EVENTS && isInterrupted(interruptedCalls.askForEvents)) return -1;
  if (option == ZMQ_EVENTS && isInterruptedInTurn(questions)) return -1;
  return ownGetsockopt(socket, option, value, size);
}

extern "C" int zmq_send(void* socket, const void* bytes, size_t size, int flags) {
  return isInterruptedInTurn(sends) ? -1 : ownSend(socket, bytes, size, flags);
}
