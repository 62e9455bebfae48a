#pragma once

#include <sys/types.h>

#include <atomic>
#include <thread>
#include <zmq.hpp>

#include "common/socket_parts.h"

namespace zel {

/// Somebody who keeps ZeroMQ sockets open on a context that belongs to somebody else.
///
/// A context cannot end while a socket is open on it, and a static object that holds a socket may be destroyed after
/// the context: the process would hang at exit. So the holders are known, and their sockets are closed by an exit
/// handler that is registered after the context was made and thus runs before the context is destroyed.
///
/// A forked child must not touch the sockets and contexts of its parent: to it the holder is as good as new.
class SocketHolder {
 public:
  virtual ~SocketHolder() = default;
  SocketHolder(const SocketHolder&) = delete;
  SocketHolder& operator=(const SocketHolder&) = delete;

 protected:
  SocketHolder() = default;

  /// To be called before the first socket is opened on the context.
  void attach(zmq::context_t& context);
  /// To be called in the destructor of the derived class, which then closes its sockets itself.
  void detach();

  /// Closes every socket. Runs in the thread that ends the process; not at all in a forked child.
  virtual void closeSockets() noexcept = 0;

  zmq::context_t* context() const { return context_; }
  /// Whether the sockets were opened by this process rather than by the one it was forked from.
  bool ownsSockets() const;

  /// The time during which a thread works with the sockets. When the process is at its end there is nothing to work
  /// with, and the use is refused.
  class Use {
   public:
    explicit Use(SocketHolder& holder);
    ~Use();
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return granted_; }

   private:
    SocketHolder& holder_;
    bool granted_;
  };

 private:
  static void closeAll();
  bool isUsedElsewhere() const;
  void announceEnd();
  void end(Clock::time_point deadline);

  zmq::context_t* context_ = nullptr;
  pid_t owner_ = 0;
  std::atomic<std::thread::id> user_{};
  std::atomic<bool> ended_{false};
};

/// Whether the process may still open as many descriptors as a new context and socket need: libzmq aborts the process
/// when it runs out of them halfway.
bool descriptorsAvailable();

}  // namespace zel
