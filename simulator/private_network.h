#pragma once

#include <string>

namespace zel::sim {

/// Moves this process into a network namespace of its own that has nothing but a loopback interface, which is up. Where
/// the process may not make one, it makes a user namespace first, in which it keeps its user and its group.
/// To be called before the process starts a thread.
/// @return empty, or why the system does not allow it
std::string enterPrivateNetwork();

}  // namespace zel::sim
