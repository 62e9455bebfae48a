#include "simulator/connections.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>

namespace zel::sim {

namespace {

bool listens(int descriptor) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &value, &size) == 0 && value != 0;
}

/// The endpoint to which a socket is bound; empty when the descriptor is not a socket that has one.
std::string endpointOf(int descriptor) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return {};
  if (address.ss_family == AF_INET) {
    const auto& internet = reinterpret_cast<const sockaddr_in&>(address);
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, &internet.sin_addr, text, sizeof text) == nullptr) return {};
    return std::string("tcp://").append(text).append(":").append(std::to_string(ntohs(internet.sin_port)));
  }
  if (address.ss_family != AF_UNIX || size <= offsetof(sockaddr_un, sun_path)) return {};
  return std::string("ipc://") + reinterpret_cast<const sockaddr_un&>(address).sun_path;
}

std::vector<AcceptedConnection> socketsAt(const std::vector<std::string>& endpoints) {
  std::vector<AcceptedConnection> sockets;
  std::error_code error;
  for (std::filesystem::directory_iterator entry("/proc/self/fd", error), end; !error && entry != end;
       entry.increment(error)) {
    const int descriptor = std::atoi(entry->path().filename().c_str());
    std::string endpoint = endpointOf(descriptor);
    const bool wanted = std::find(endpoints.begin(), endpoints.end(), endpoint) != endpoints.end();
    if (wanted) sockets.push_back({descriptor, std::move(endpoint)});
  }
  return sockets;
}

}  // namespace

std::vector<AcceptedConnection> acceptedConnections(const std::vector<std::string>& endpoints) {
  std::vector<AcceptedConnection> sockets = socketsAt(endpoints);
  const auto isListener = [](const AcceptedConnection& socket) { return listens(socket.descriptor); };
  sockets.erase(std::remove_if(sockets.begin(), sockets.end(), isListener), sockets.end());
  return sockets;
}

bool hasSocketsAt(const std::vector<std::string>& endpoints) { return !socketsAt(endpoints).empty(); }

void finishConnection(int descriptor) { shutdown(descriptor, SHUT_WR); }

bool endConnection(int descriptor) { return shutdown(descriptor, SHUT_RDWR) == 0; }

}  // namespace zel::sim
