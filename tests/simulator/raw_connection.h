#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "tests/support/zmtp.h"

namespace zel::test {

/// A TCP connection to one of the board's ports. Connecting, sending and receiving give up after a second.
class RawConnection {
 public:
  explicit RawConnection(std::uint16_t port) : descriptor_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const timeval limit{1, 0};
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawConnection() { close(descriptor_); }
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool connected() const { return connected_; }
  /// Waits until the board has closed the connection. @return whether it has
  bool isClosed() const {
    char bytes[256];
    for (;;) {
      const ssize_t got = recv(descriptor_, bytes, sizeof bytes, 0);
      if (got <= 0) return got == 0 || errno == ECONNRESET;
    }
  }
  zmtp::Stream stream() const { return zmtp::Stream(descriptor_); }

 private:
  int descriptor_;
  bool connected_;
};

}  // namespace zel::test
