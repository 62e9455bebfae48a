#pragma once

#include <string>

namespace zel::sim {

/// Sends the state of this process to the service manager that started it, as sd_notify(3) does: one datagram to the
/// Unix socket that the environment variable NOTIFY_SOCKET names. Without the variable it does nothing.
/// @param state  "READY=1" or "STOPPING=1"
/// @return empty, or why the datagram could not be sent
std::string notifyServiceManager(const std::string& state);

}  // namespace zel::sim
