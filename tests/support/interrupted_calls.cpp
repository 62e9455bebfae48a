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

}  // namespace

}  // namespace zel::test

// They stand before libzmq's own.

extern "C" int zmq_connect(void* socket, const char* address) {
  static const auto own = reinterpret_cast<decltype(&zmq_connect)>(dlsym(RTLD_NEXT, "zmq_connect"));
  return zel::test::isInterrupted(zel::test::interruptedCalls.connect) ? -1 : own(socket, address);
}

extern "C" int zmq_disconnect(void* socket, const char* address) {
  static const auto own = reinterpret_cast<decltype(&zmq_disconnect)>(dlsym(RTLD_NEXT, "zmq_disconnect"));
  return zel::test::isInterrupted(zel::test::interruptedCalls.disconnect) ? -1 : own(socket, address);
}

extern "C" int zmq_socket_monitor(void* socket, const char* endpoint, int events) {
  static const auto own = reinterpret_cast<decltype(&zmq_socket_monitor)>(dlsym(RTLD_NEXT, "zmq_socket_monitor"));
  if (endpoint != nullptr && zel::test::isInterrupted(zel::test::interruptedCalls.monitor)) return -1;
  return own(socket, endpoint, events);
}

extern "C" int zmq_getsockopt(void* socket, int option, void* value, size_t* size) {
  static const auto own = reinterpret_cast<decltype(&zmq_getsockopt)>(dlsym(RTLD_NEXT, "zmq_getsockopt"));
  if (option == ZMQ_EVENTS && zel::test::isInterrupted(zel::test::interruptedCalls.askForEvents)) return -1;
  if (option == ZMQ_EVENTS && zel::test::isInterruptedInTurn(zel::test::questions)) return -1;
  return own(socket, option, value, size);
}

extern "C" int zmq_send(void* socket, const void* bytes, size_t size, int flags) {
  static const auto own = reinterpret_cast<decltype(&zmq_send)>(dlsym(RTLD_NEXT, "zmq_send"));
  return zel::test::isInterruptedInTurn(zel::test::sends) ? -1 : own(socket, bytes, size, flags);
}
