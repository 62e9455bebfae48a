#pragma once

#include <zmq.hpp>

#include "../common/export.h"

/// The owner of the process's one ZeroMQ context, so that all sockets share one I/O thread and one socket limit.
///
/// Clients and subscribers take the context in their `init`. It is made on the first use and destroyed at the end of
/// the process, after every client and subscriber of this library has closed its sockets. The destructors of static
/// objects that were made after the first use may still send requests. A socket that the application itself opens on
/// the context must be closed before the process ends: ZeroMQ waits for it.
///
/// Threads: the first use may happen on several threads at once. Nothing else is guarded: `resetContext` must not run
/// while another thread uses the context.
class ZEL_EXPORT ZmqUtils {
 public:
  /// The single instance, made by the first call: logs "ZmqUtils: initializing ZMQ Context ..." at level 5.
  /// @throws zmq::error_t  when no context can be made; the next call tries again.
  static ZmqUtils& getInstance();

  /// The context itself; not a copy.
  zmq::context_t& getContext();

  /// Destroys the context and makes a new one; logs "ZmqUtils: reseting ZMQ Context ..." at level 5.
  ///
  /// Waits until every socket that is still open on the old context has been closed: clients, subscribers and views
  /// have to be destroyed before, and the cache, which never is, must not have been made. In a child made by fork(2)
  /// nothing is waited for: this is how to get a context there, for which clients and subscribers need another `init`,
  /// and the parent's is left alone.
  /// @throws zmq::error_t  when no context can be made: there is none until a later call succeeds.
  void resetContext();

  /// Logs "ZmqUtils: closing ZMQ context" at level 5 and destroys the context. The instance itself stays in memory at
  /// the end of the process: `getContext` then returns an empty context.
  ~ZmqUtils();
  ZmqUtils(const ZmqUtils&) = delete;
  ZmqUtils& operator=(const ZmqUtils&) = delete;

 private:
  ZmqUtils();
  static ZmqUtils* make();
  static void closeAtExit();
  void close() noexcept;

  zmq::context_t context_;
};
