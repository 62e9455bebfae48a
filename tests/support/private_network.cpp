#include "tests/support/private_network.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zel::test {

namespace {

std::string failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

std::string raiseLoopback() {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return failure("socket");
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  const int result = ioctl(descriptor, SIOCSIFFLAGS, &request);
  std::string why = result == 0 ? "" : failure("raising the loopback interface");
  close(descriptor);
  return why;
}

}  // namespace

std::string enterPrivateNetwork() {
  // Without the right to make a network namespace, a user namespace gives it where the system allows those.
  if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return failure("unshare");
  return raiseLoopback();
}

}  // namespace zel::test
