#include "tests/support/private_network.h"

#include <linux/capability.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

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

/// Lets the programs that a test starts change its network, too: who is not root loses every capability at an exec but
/// the ambient ones.
std::string handNetworkOn() {
  __user_cap_header_struct self{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  if (syscall(SYS_capget, &self, sets.data()) != 0) return failure("capget");
  sets[CAP_TO_INDEX(CAP_NET_ADMIN)].inheritable |= CAP_TO_MASK(CAP_NET_ADMIN);
  if (syscall(SYS_capset, &self, sets.data()) != 0) return failure("capset");
  return prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_NET_ADMIN, 0, 0) == 0 ? "" : failure("prctl");
}

}  // namespace

std::string enterPrivateNetwork() {
  if (unshare(CLONE_NEWNET) != 0) {
    // A user namespace gives the right to make a network namespace, where the system allows those.
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return failure("unshare");
    if (std::string why = handNetworkOn(); !why.empty()) return why;
  }
  return raiseLoopback();
}

bool isDeadConnectionOpen() {
  std::ifstream connections("/proc/self/net/tcp");
  std::string line;
  std::getline(connections, line);  // the heading
  while (std::getline(connections, line)) {
    std::istringstream columns(line);
    std::string number, local, remote, state;
    columns >> number >> local >> remote >> state;
    constexpr const char* kDaemonsPort = ":15B4";
    constexpr const char* kCloseWait = "08";
    if (state == kCloseWait && remote.find(kDaemonsPort) != std::string::npos) return true;
  }
  return false;
}

}  // namespace zel::test
