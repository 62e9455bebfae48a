#include "cli/descriptor.h"

#include <poll.h>

#include <cerrno>

namespace zel::ctl {

bool isReadable(int descriptor, const Deadline& deadline) {
  pollfd watched{descriptor, POLLIN, 0};
  int ready = 0;
  do {
    ready = poll(&watched, 1, static_cast<int>(deadline.left().count()));
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

}  // namespace zel::ctl
