#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace zel::sim {

/// Ends the connections that hold most when the process has taken too much memory since its start.
///
/// libzmq bounds neither the frames of one message nor the subscriptions of a client, shows neither before it has taken
/// the memory for them, and cannot end a single connection. But the kernel counts the bytes that come over each
/// connection, and a connection that is shut down takes all that libzmq holds for it with it.
/// Threads: a thread of its own looks at the memory, however busy the board is.
class MemoryGuard {
 public:
  struct Options {
    std::string requestEndpoint;
    std::string publishEndpoint;
    std::size_t mostGrowth = 0;  ///< how many bytes of its heap the process may have in use more than now
    std::function<void(const std::string&)>
        tell;  ///< receives, from the guard's thread, a message at most once a second
  };
  explicit MemoryGuard(const Options& options);
  ~MemoryGuard();
  MemoryGuard(const MemoryGuard&) = delete;
  MemoryGuard& operator=(const MemoryGuard&) = delete;

  /// The board has taken a whole request off this connection: what has come over it until now is not held any more.
  void taken(int descriptor);

 private:
  /// By the bytes that have come over it, which the kernel counts.
  struct Connection {
    std::uint64_t received = 0;
    std::uint64_t news = 0;       ///< since the look before
    std::uint64_t taken = 0;      ///< `received` when its last request was taken
    std::uint64_t unfetched = 0;  ///< waits to be sent, since the client does not fetch it
    bool subscribes = false;
    std::uint64_t held() const { return received - taken + unfetched; }
  };

  void watch();
  void look();
  unsigned int endFastSubscribers();
  unsigned int endThoseThatHoldMost();

  const Options options_;
  const std::size_t calmInUse_;
  const std::size_t mostInUse_;
  std::mutex mutex_;
  std::condition_variable isEnding_;
  bool ending_ = false;
  unsigned int ended_ = 0;
  std::map<int, Connection> connections_;  ///< by descriptor
  std::thread thread_;
};

}  // namespace zel::sim
