#pragma once

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <zmq.hpp>

#include "common/error_report.h"
#include "common/shared/socket_owner.h"
#include "common/shared/socket_parts.h"
#include "common/shared/wire_json.h"

namespace zel {

constexpr std::chrono::milliseconds kDefaultTimeout{5000};

/// The client's side of the request connection: one REQ socket, kept while requests succeed and made anew after a
/// failed one, since a broken connection can leave a socket deaf for good.
///
/// No operation waits, except `receiveUntil`. A request goes out in the steps of `Sending`.
class RequestConnection : public SocketOwner {
 public:
  RequestConnection() = default;
  ~RequestConnection() override = default;
  RequestConnection(const RequestConnection&) = delete;
  RequestConnection& operator=(const RequestConnection&) = delete;

  /// @return empty, or why the socket cannot be opened
  std::string open(zmq::context_t& context, const std::string& address);

  /// As `open`, but a socket that cannot be opened yet is opened by the first request.
  /// @return false when the process is at its end
  bool openLater(zmq::context_t& context, const std::string& address);

  bool isInitialized() const { return !address_.empty(); }
  const std::string& address() const { return address_; }
  /// Null between a failed request and the next one.
  void* socket() const { return socket_; }

  /// Works with the connection until the scope ends; disconnects then unless the connection is worth keeping.
  class Exchange {
   public:
    explicit Exchange(RequestConnection& connection) : connection_(connection), use_(connection) {}
    ~Exchange() {
      if (!keep_ && use_ && connection_.isOfThisProcess()) connection_.closeSockets();
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    /// To be asked anew behind a function of the application's: it may have forked the process, and return in the
    /// child.
    /// @return null, or why there is nothing to work with
    const char* refusal() const { return connection_.refusalText(use_); }
    /// Whether another thread is ending the process, and may destroy the client meanwhile.
    bool endsElsewhere() const { return use_.refusal() == Refusal::kEnding && !isExitThread(); }
    void keepConnection() { keep_ = true; }

   private:
    RequestConnection& connection_;
    Use use_;
    bool keep_ = false;
  };

  /// One request on its way to a daemon. Both frames are handed to a connected daemon, or none is.
  class Sending {
   public:
    enum class State {
      kWaiting,        ///< no daemon takes it yet: call `step` again when the socket is ready to send, or at `wakeUp`
      kSent,           ///< both frames are handed over
      kNotSent,        ///< the deadline has passed
      kCannotConnect,  ///< there is no socket, and none can be opened: `why` has the reason
    };

    /// @param id, body  have to outlive this object
    Sending(RequestConnection& connection, const std::string& id, const std::string& body, Clock::time_point deadline);

    /// Does what can be done without a wait.
    State step();
    /// When to call `step` again at the latest.
    Clock::time_point wakeUp() const { return renewAt_ && *renewAt_ < deadline_ ? *renewAt_ : deadline_; }
    const std::string& why() const { return why_; }

   private:
    bool begin();

    RequestConnection& connection_;
    const std::string& id_;
    const std::string& body_;
    Clock::time_point deadline_;
    /// When a socket from before this request is given up and made anew: a peer that broke the protocol has left it
    /// deaf for good. Empty: it is made anew already.
    std::optional<Clock::time_point> renewAt_;
    bool begun_ = false;  ///< the first frame is handed over
    std::string why_;
  };

  /// Takes the answer if it is there.
  bool receive(Frame& answer) { return socket_ != nullptr && answer.receiveNow(socket_); }
  /// Waits for the answer.
  bool receiveUntil(Frame& answer, Clock::time_point deadline);

  /// Reads an answer, an object whose status, where it has one, is an integer.
  /// @param reply  changed on success only
  /// @return empty, or why the answer cannot be used
  std::string read(Frame& answer, Json::Value& reply);

  /// Closes the socket after a failed request: the next request opens a new one.
  void closeSockets() noexcept override { closeSocket(socket_); }

  /// @return null, or why the use is refused
  const char* refusalText(const Use& use) const;

 protected:
  void forgetSockets() noexcept override { socket_ = nullptr; }

 private:
  std::string connect();
  bool sendNow(const std::string& frame, int flags);

  static constexpr int kNoLimit = -1;
  void* socket_ = nullptr;
  int receiveLimit_ = kNoLimit;  // ms; what the socket is set to
  std::string address_;
  WireJsonReader reader_;
};

/// Writes a request's body; null is no body, an empty frame.
/// @return empty, or why it cannot be written
std::string writeBody(const Json::Value& body, std::string& text);

/// The status of an answer that `RequestConnection::read` has read.
int statusOf(const Json::Value& answer);

/// The reports of requests that fail, as all clients word them.
namespace report {
/// @param name  of the command, for people
ErrorReport notInitialized(const std::string& name, std::string_view why);
ErrorReport badRequest(const std::string& name, std::string_view why);
ErrorReport cannotConnect(const std::string& name, std::string_view address, std::string_view why);
ErrorReport notSent(const std::string& name, std::string_view address, std::chrono::milliseconds timeout);
ErrorReport noAnswer(const std::string& name, std::string_view address, std::chrono::milliseconds timeout);
ErrorReport cancelled(const std::string& name);
ErrorReport cancelledWhenSent(const std::string& name, std::string_view address);
/// For a request that had been sent when the process came to its end.
ErrorReport abandoned(const std::string& name, std::string_view address);
ErrorReport badAnswer(const std::string& name, std::string_view why);
/// @param answer  has a negative status
ErrorReport refused(const std::string& name, const Json::Value& answer);
}  // namespace report

}  // namespace zel
