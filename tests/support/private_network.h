#pragma once

#include <string>

namespace zel::test {

/// Moves the process into a network namespace of its own with nothing in it but a loopback interface that is up.
/// To be called before the process starts a thread.
///
/// @return empty, or why the system does not allow it.
std::string enterPrivateNetwork();

/// Whether a connection to the daemon's port for requests is open on our side only.
bool isDeadConnectionOpen();

}  // namespace zel::test
