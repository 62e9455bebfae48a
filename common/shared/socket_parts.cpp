#include "common/shared/socket_parts.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <limits>

namespace zel {

bool setOption(void* socket, const SocketOption& option) {
  if (option.option == ZMQ_MAXMSGSIZE) {
    const std::int64_t size = option.value;
    return zmq_setsockopt(socket, option.option, &size, sizeof size) == 0;
  }
  return zmq_setsockopt(socket, option.option, &option.value, sizeof option.value) == 0;
}

int connect(void* socket, const std::string& address) {
  if (address.find('\0') != std::string::npos) {  // libzmq would read up to it
    errno = EINVAL;
    return -1;
  }
  return despiteSignals([&] { return zmq_connect(socket, address.c_str()); });
}

bool mayTryAgain() { return zmq_errno() == EAGAIN || zmq_errno() == EINTR; }

long millisecondsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  constexpr decltype(left) kLongest = std::numeric_limits<int>::max();  // what zmq_poll(3) can wait in one call
  return static_cast<long>(std::clamp<decltype(left)>(left, 0, kLongest));
}

bool waitFor(zmq_pollitem_t item, Clock::time_point deadline) {
  for (;;) {
    const long left = millisecondsUntil(deadline);
    if (left == 0) return false;
    const int ready = zmq_poll(&item, 1, left);
    if (ready > 0) return true;
    if (ready < 0 && zmq_errno() != EINTR) return false;
  }
}

}  // namespace zel
