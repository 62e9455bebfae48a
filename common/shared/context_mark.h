#pragma once

#include <climits>
#include <zmq.hpp>

#include "common/shared/library_bit.h"

namespace zel {

/// Whether this library has registered an exit handler for the context, see `SocketOwner`. A list of
/// addresses would not do, since a new context may have the address of a destroyed one. So the mark is in the context:
/// one bit for each library in ZMQ_MAX_MSGSZ, an option that libzmq 4.3.4 stores and does not use.
inline bool isMarked(zmq::context_t& context) {
  const int value = zmq_ctx_get(context.handle(), ZMQ_MAX_MSGSZ);
  return value >= INT_MAX - 3 && (value & kLibraryBit) == 0;
}

/// Marks the context, unless the application has set the option.
inline void mark(zmq::context_t& context) {
  const int value = zmq_ctx_get(context.handle(), ZMQ_MAX_MSGSZ);
  if (value >= INT_MAX - 3) zmq_ctx_set(context.handle(), ZMQ_MAX_MSGSZ, value & ~kLibraryBit);
}

/// Marks a context for every library: the handlers of the context before it at the same address serve it, too.
inline void markForAll(zmq::context_t& context) { zmq_ctx_set(context.handle(), ZMQ_MAX_MSGSZ, INT_MAX - 3); }

}  // namespace zel
