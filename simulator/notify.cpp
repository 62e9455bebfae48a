#include "simulator/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace zel::sim {

std::string notifyServiceManager(const std::string& state) {
  const char* const variable = std::getenv("NOTIFY_SOCKET");
  if (variable == nullptr) return {};
  const std::string path = variable;
  sockaddr_un address = {};
  if (path.empty() || path.size() >= sizeof address.sun_path) return "NOTIFY_SOCKET is not the path of a socket";
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, path.size());
  // The name of an abstract socket begins with a null byte, which the variable writes as '@'.
  if (path.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());

  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool sent = descriptor >= 0 && sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL,
                                              reinterpret_cast<const sockaddr*>(&address), size) >= 0;
  std::string reason = sent ? "" : path + ": " + std::strerror(errno);
  if (descriptor >= 0) close(descriptor);
  return reason;
}

}  // namespace zel::sim
