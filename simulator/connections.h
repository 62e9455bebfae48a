#pragma once

#include <string>
#include <vector>

namespace zel::sim {

/// A connection that this process has accepted.
struct AcceptedConnection {
  int descriptor;
  std::string endpoint;  ///< at which: "tcp://127.0.0.1:5556" or "ipc:///path"
};

/// The connections at these endpoints. libzmq can neither list nor end its connections, but the kernel can.
std::vector<AcceptedConnection> acceptedConnections(const std::vector<std::string>& endpoints);

/// Whether this process has a socket at one of these endpoints, listening or connected.
bool hasSocketsAt(const std::vector<std::string>& endpoints);

/// Shuts a connection down: libzmq finds it closed by the other side. @return whether it was open
bool endConnection(int descriptor);
/// Tells the other side of a connection that nothing more comes; libzmq closes it when the other side has closed it,
/// too.
void finishConnection(int descriptor);

}  // namespace zel::sim
