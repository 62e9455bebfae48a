#pragma once

#include <climits>
#include <zmq.hpp>

// Header-only, so that the API's library needs nothing of libzelCommonTypes for it.

namespace zel {

/// Whether an exit handler for the context is registered, see `SocketOwner`. The address of a context does not tell: a
/// context may be destroyed and another be made at the same address. So the context itself carries the mark: an option
/// that libzmq 4.3.4 keeps and does not use.
inline bool isMarked(zmq::context_t& context) { return zmq_ctx_get(context.handle(), ZMQ_MAX_MSGSZ) == INT_MAX - 1; }

/// Marks the context, unless the application has set the option.
inline void mark(zmq::context_t& context) {
  if (zmq_ctx_get(context.handle(), ZMQ_MAX_MSGSZ) == INT_MAX) {
    zmq_ctx_set(context.handle(), ZMQ_MAX_MSGSZ, INT_MAX - 1);
  }
}

}  // namespace zel
