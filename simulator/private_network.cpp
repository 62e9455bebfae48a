#include "simulator/private_network.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace zel::sim {

namespace {

std::string failure(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string writeFile(const char* path, const std::string& text) {
  const int file = open(path, O_WRONLY | O_CLOEXEC);
  const bool written = file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  std::string why = written ? "" : failure(std::string(path) + " cannot be written");
  if (file >= 0) close(file);
  return why;
}

/// The line of a map that leaves an id as it is.
std::string itself(unsigned int id) { return std::to_string(id) + " " + std::to_string(id) + " 1"; }

std::string enterUserNamespace() {
  const uid_t user = geteuid();  // the new namespace does not know it any more
  const gid_t group = getegid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return failure("unshare");
  if (std::string why = writeFile("/proc/self/setgroups", "deny"); !why.empty()) return why;
  if (std::string why = writeFile("/proc/self/uid_map", itself(user)); !why.empty()) return why;
  return writeFile("/proc/self/gid_map", itself(group));
}

std::string raiseLoopback() {
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return failure("socket");
  ifreq request{};
  std::strncpy(request.ifr_name, "lo", sizeof request.ifr_name - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  std::string why = ioctl(descriptor, SIOCSIFFLAGS, &request) == 0 ? "" : failure("the loopback cannot be brought up");
  close(descriptor);
  return why;
}

}  // namespace

std::string enterPrivateNetwork() {
  if (unshare(CLONE_NEWNET) != 0) {
    if (std::string why = enterUserNamespace(); !why.empty()) return why;
  }
  return raiseLoopback();
}

}  // namespace zel::sim
