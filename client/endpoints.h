#pragma once

#include <string>

#include "../common/export.h"

/// @file
/// Where the daemon is. On a board its endpoints are fixed, "tcp://127.0.0.1:5556" for requests and
/// "tcp://127.0.0.1:5575" for notifications. A program that works with another daemon (a simulator beside others, a
/// board behind an ssh tunnel) says so in its code, before its first client.

namespace zel {

/// Sets the endpoints that the clients, the subscribers and the cache of this process connect to from their next `init`
/// on, and each `zel::AsyncClient` that is made later. An object that is connected keeps its connection until its next
/// `init`. To be called before the first of them: the cache's subscription, for example, is made only once.
///
/// @param requests, notifications  ZeroMQ endpoints: "tcp://127.0.0.1:15556", "ipc:///run/board/requests"
///                                 (zmq_tcp(7), zmq_ipc(7)); empty: the fixed one. They are not checked here: `init`
///                                 returns -101 for an endpoint that is not valid.
/// Threads: any.
ZEL_EXPORT void useEndpoints(const std::string& requests, const std::string& notifications);

/// The endpoint of the daemon's requests: that of `useEndpoints`, or the fixed one. Threads: any.
ZEL_EXPORT std::string requestEndpoint();
/// The endpoint of the daemon's notifications, in the same way. Threads: any.
ZEL_EXPORT std::string notificationEndpoint();

}  // namespace zel
