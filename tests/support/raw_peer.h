#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <ostream>
#include <string>
#include <thread>

namespace zel::test {

namespace zmtp {
class Stream;
}

/// How a server that is not a daemon treats the connections to the daemon's port.
enum class RawBehaviour {
  kNoAccept,             ///< listens; the kernel connects, nobody accepts
  kSilentAccept,         ///< accepts and says nothing
  kReset,                ///< accepts and resets the connection
  kRandomBytes,          ///< sends bytes that mean nothing
  kHttpAnswer,           ///< answers as an HTTP server that understood nothing
  kGreetingThenSilence,  ///< begins as a ZeroMQ peer and never ends its handshake
  kWrongSocketType,      ///< a ZeroMQ peer of a type that takes no requests
  kHugeFrameLength,      ///< a ZeroMQ peer that answers a request with a frame of 2^62 bytes
  kOverSizeFrame,        ///< answers with a frame that is one byte over the limit of the wire
  kEndlessFrames,        ///< answers with a message whose frames never end
};
std::ostream& operator<<(std::ostream& out, RawBehaviour behaviour);
/// All of them, for tests that try each.
constexpr RawBehaviour kAllRawBehaviours[] = {RawBehaviour::kNoAccept,        RawBehaviour::kSilentAccept,
                                              RawBehaviour::kReset,           RawBehaviour::kRandomBytes,
                                              RawBehaviour::kHttpAnswer,      RawBehaviour::kGreetingThenSilence,
                                              RawBehaviour::kWrongSocketType, RawBehaviour::kHugeFrameLength,
                                              RawBehaviour::kOverSizeFrame,   RawBehaviour::kEndlessFrames};

/// A TCP server on the loopback that treats each connection as its behaviour says, until it is destroyed.
class RawPeer {
 public:
  /// Listens when it returns. @throws std::system_error when the port is taken
  explicit RawPeer(RawBehaviour behaviour, unsigned short port = 5556);
  /// The same with a behaviour of the caller's, which runs in a thread of each connection's own. The connection stays
  /// open when it is over.
  using Script = std::function<void(const zmtp::Stream&)>;
  RawPeer(Script script, unsigned short port);
  /// All connections are closed, and the port is free, when it returns.
  ~RawPeer();
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  /// How many connections were accepted.
  int accepted() const { return accepted_; }

 private:
  struct Connection {
    int descriptor;
    std::thread thread;
  };
  explicit RawPeer(unsigned short port);
  void acceptAll();

  Script script_;  ///< none: each connection is reset
  int listener_;
  std::atomic<int> accepted_{0};
  std::list<Connection> connections_;
  std::thread thread_;
};

}  // namespace zel::test
