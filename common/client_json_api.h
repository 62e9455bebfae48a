#pragma once

#include <json/value.h>

#include <chrono>
#include <string>
#include <zmq.hpp>

#include "error_report.h"
#include "export.h"
#include "ipc_msg.h"

class ClientJsonApi;

namespace zel {

/// How long each of the next requests of a client may take from its start to its answer, unless its class overrides
/// `getClientTimeout`: 5 s before this is called. 0 and negative values mean 5 s again.
///
/// Weak: null in a process with a libzelCommonTypes of another maker. Threads: as a request of the client.
ZEL_EXPORT void setTimeout(ClientJsonApi& client, std::chrono::milliseconds timeout) __attribute__((weak));

}  // namespace zel

/// A request client: sends one request at a time over ZeroMQ and waits for its answer.
///
/// On the wire a request is two frames, the command id as decimal text and the body as compact JSON (an empty frame
/// when there is no body); the answer is one frame, a JSON object. A frame is at most 1 MiB, JSON nests at most 64
/// deep and holds at most 65536 values. An answer belongs to its request: a late or doubled one is never taken for
/// another's.
///
/// The client works again with the very next call once a daemon is back; nothing has to be made anew.
///
/// Threads: one caller at a time per client. A child made by fork(2) has to call `init` with a context of its own,
/// and may do so whatever another thread of its parent did with the client.
/// The context has to outlive the client, except at the end of the process: a client in static storage is disconnected
/// before the context is destroyed, and its calls return -100 from there on. Until then the destructor of a static
/// object may send requests.
///
/// The order of the virtual operations is part of the binary interface.
class ZEL_EXPORT ClientJsonApi {
 public:
  /// Not connected yet.
  ClientJsonApi();
  virtual ~ClientJsonApi();
  ClientJsonApi(const ClientJsonApi&) = delete;
  ClientJsonApi& operator=(const ClientJsonApi&) = delete;

  /// The ZeroMQ endpoint that `init` connects to.
  virtual std::string getIpcConnectAddress() = 0;

  /// The name of a command, as the client's error texts show it. By default "command ID".
  /// @return 0
  virtual int getCommandDescription(unsigned int id, std::string& description);

  /// How long a request may take from its start to its answer, in milliseconds: 5000, or what `zel::setTimeout` says. A
  /// derived class may say otherwise; 0 and negative values count as 5000.
  virtual int getClientTimeout();

  /// Opens the client's socket on the context and starts to connect it to `getIpcConnectAddress`. The daemon need not
  /// be there yet. May be called again, also with another context: the old socket is closed first.
  ///
  /// @return 0, or -101 when the socket cannot be opened, the address is not valid, or the process is at its end.
  int init(zmq::context_t& context);

  /// Sends the request and waits for the answer, `getClientTimeout` at most; signals do not shorten or lengthen that.
  ///
  /// Logs nothing at level 2: whoever calls reports the code.
  ///
  /// @param reply  receives the whole answer, its "status" included. Untouched unless the daemon answered with a JSON
  ///               object; a refusal is such an answer.
  /// @return the answer's "status" (0 when it has none): 0 or positive for success, negative for a refusal; or
  ///         -100  `init` has not succeeded, or the process is at its end
  ///         -101  the socket cannot be opened or connected
  ///         -102  no daemon took the request within the time-out: it was not sent and never will be
  ///         -103  the request was sent and no answer came within the time-out (an answer over the size limit counts
  ///               as none): the daemon may have acted on it
  ///         -104  the answer is not one JSON object in one frame, or its "status" is not an integer
  ///         -105  the request cannot be written as JSON text within the limits: nothing was sent
  ///         Each of these is kept for `getLastErrorMessage`, except the -100 of a thread that goes on calling while
  ///         another one ends the process.
  int sendMessage(IpcMsg& message, Json::Value& reply);

  /// Tells the last failure of this client: code 0 and no text while there was none; a success leaves it in place.
  /// The text of a refusal is the daemon's "error" text, or this client's own where that is missing or empty, followed
  /// by the daemon's "aux-errors" in parentheses.
  /// @return 0
  int getLastErrorMessage(ErrorReport& report);

 private:
  class Connection;
  std::string nameOf(unsigned int id);

  friend void zel::setTimeout(ClientJsonApi& client, std::chrono::milliseconds timeout);

  Connection* const connection_;
  ErrorReport lastError_;
  int timeout_ = 5000;  ///< ms
};
