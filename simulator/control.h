#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "simulator/orders.h"
#include "simulator/socket_file.h"

namespace zel::sim {

/// The Unix socket on which a running simulator takes orders. A client sends an order a line and gets an answer for
/// each: "ok 2" and then two lines, "failed WHY" or "not-understood WHY".
///
/// Only the owner of the process may connect. A client that sends nothing, or a line without an end, or does not fetch
/// its answers is bounded: a line is at most `kLongestLine` bytes, and of more than `kMostClients` clients the one that
/// has been silent for longest loses its connection.
/// Threads: one of its own for all clients; an order is carried out in the thread in which the simulator serves.
class ControlSocket {
 public:
  static constexpr std::size_t kLongestLine = std::size_t{2} << 20U;
  static constexpr std::size_t kMostClients = 16;

  ControlSocket() = default;
  /// Removes the socket's file.
  ~ControlSocket();
  ControlSocket(const ControlSocket&) = delete;
  ControlSocket& operator=(const ControlSocket&) = delete;

  /// Makes the socket, in place of one that an ended process has left.
  /// @return empty, or why it cannot
  std::string open(const std::string& path);
  /// Takes orders from now on.
  void serve(std::function<OrderResult(const std::string& line)> carryOut);

 private:
  struct Client {
    int descriptor;
    std::string received;  ///< of a line that has not ended
    std::string answer;    ///< what has to be sent
    std::chrono::steady_clock::time_point lastHeard;
  };

  void run();
  void accept();
  bool exchange(Client& client);
  bool receive(Client& client) const;
  bool send(Client& client) const;
  void answerFirstLine(Client& client) const;

  std::optional<SocketFile> file_;
  int listener_ = -1;
  int end_ = -1;  ///< an eventfd
  std::list<Client> clients_;
  std::function<OrderResult(const std::string& line)> carryOut_;
  std::thread thread_;
};

/// Sends one order to the simulator that listens at the path, and waits for its answer.
OrderResult tellAt(const std::string& path, const std::string& line);

}  // namespace zel::sim
