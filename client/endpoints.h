#pragma once

#include <string>

#include "../common/export.h"

/// @file
/// Where the daemon is. On a board its endpoints are fixed, "tcp://127.0.0.1:5556" for requests and
/// "tcp://127.0.0.1:5575" for notifications. A program that works with another daemon (a simulator beside others, a
/// board behind an ssh tunnel) says so in its code, before its first client.

namespace zel {

/// Has the clients, subscribers and the cache of this process connect to other endpoints, from their next `init` on. An
/// object that is connected stays as it is.
///
/// @param requests, notifications  ZeroMQ endpoints: "tcp://127.0.0.1:15556", "ipc:///run/board/requests"
///                                 (zmq_tcp(7), zmq_ipc(7)); empty: the fixed one. Not checked here: `init` returns
///                                 -101 for one that is not valid.
/// Threads: any.
ZEL_EXPORT void useEndpoints(const std::string& requests, const std::string& notifications);

/// The endpoint of the daemon's requests. Threads: any.
ZEL_EXPORT std::string requestEndpoint();
/// The endpoint of the daemon's notifications. Threads: any.
ZEL_EXPORT std::string notificationEndpoint();

}  // namespace zel
