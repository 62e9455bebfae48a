#pragma once

#include <cstdio>

#include "client/async_client.h"
#include "typed_ports.h"

/// Stores each typed port as that of the RTSP server, then reads the settings back and shows the port.
///
/// The application's loop calls `readInput` when standard input is readable, and the client's `process` when the
/// client's descriptor is. No call waits for the daemon.
class PortConsole {
 public:
  explicit PortConsole(zel::AsyncClient& client) : client_(client) {}

  /// @return false at the end of the input
  bool readInput() {
    return ports_.read([this](unsigned int port) { store(port); });
  }

 private:
  void store(unsigned int port) {
    client_.submit(zel::requests::set(zel::settings::kRtspTcpPort, port), [this](const zel::Answer<void>& answer) {
      if (!answer.ok()) std::fprintf(stderr, "%s\n", answer.text.c_str());
      if (answer.status != zel::status::kNotSent) show();
    });
  }

  void show() {
    client_.submit(zel::requests::storedParameters(), [](const zel::Answer<SysParameters>& answer) {
      if (answer.ok()) {
        std::printf("RTSP port %u\n", answer.value.rtspTcpPort);
        std::fflush(stdout);
      } else {
        std::fprintf(stderr, "%s\n", answer.text.c_str());
      }
    });
  }

  zel::AsyncClient& client_;
  TypedPorts ports_;
};
