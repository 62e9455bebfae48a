#pragma once

#include <chrono>
#include <string>
#include <vector>
#include <zmq.hpp>

namespace zel::conformance {

/// A TCP connection without ZeroMQ, for peers that break its protocol. Closed with its scope.
class RawConnection {
 public:
  /// @param endpoint  tcp://HOST:PORT
  explicit RawConnection(const std::string& endpoint);
  ~RawConnection();
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  void write(const std::string& bytes) const;

 private:
  int descriptor_ = -1;
};

/// A DEALER socket whose messages have no envelope but the caller's. What it receives is not judged.
class RawDealer {
 public:
  using Milliseconds = std::chrono::milliseconds;

  RawDealer(zmq::context_t& context, const std::string& endpoint);
  void send(const std::vector<std::string>& frames);
  bool receive(std::vector<std::string>& frames, Milliseconds limit);
  bool exchange(const std::vector<std::string>& request, std::vector<std::string>& answer, Milliseconds limit);

 private:
  zmq::socket_t socket_;
};

}  // namespace zel::conformance
