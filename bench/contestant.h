#pragma once

#include <cstdint>

namespace zel::bench {

/// What the wire benchmark does, once with the library and once with the floor: libzmq and JsonCpp used as thinly as
/// possible. Both send the same bytes. A failure ends the program.
class Contestant {
 public:
  Contestant() = default;
  virtual ~Contestant() = default;
  Contestant(const Contestant&) = delete;
  Contestant& operator=(const Contestant&) = delete;

  /// Opens the connection for requests.
  virtual void connect() = 0;
  /// Sets one key, the RTSP server's port.
  virtual void set(std::uint32_t port) = 0;
  /// Gets the stored document into a record.
  virtual void get() = 0;

  /// Opens the connection that an event loop watches.
  virtual void connectLoop() = 0;
  /// As `set`, through an event loop, which waits for it.
  virtual void setInLoop(std::uint32_t port) = 0;
  /// Sets the key so often, through an event loop that is given all of them at once.
  virtual void queueInLoop(std::uint32_t firstPort, int count) = 0;

  /// Fetches what the cache holds, for the first time in the process.
  virtual void fetchAll() = 0;
  /// Subscribes to the notifications.
  virtual void follow() = 0;
  /// Waits for notifications and takes those that are there into the cache.
  /// @return how many
  virtual int absorb() = 0;
  /// The port in the cache, through the getter that an application uses.
  virtual std::uint32_t cachedPort() = 0;
};

/// The one that the program was built with.
Contestant& contestant();

}  // namespace zel::bench
